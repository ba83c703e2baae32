#pragma once

namespace velour::platform::binder {

// Makes this process the service manager of the sysroot: it answers on port 0
// from threads of its own until the process ends.
void serveAsServiceManager();

}  // namespace velour::platform::binder
