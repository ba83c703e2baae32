#include "velour/utils/CallStack.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <unwind.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace velour::utils {

namespace {

constexpr int MAX_FRAMES = 100;

struct Frames {
    uintptr_t addresses[MAX_FRAMES];
    int count = 0;
};

_Unwind_Reason_Code collectFrame(_Unwind_Context* context, void* argument) {
    auto* frames = static_cast<Frames*>(argument);
    // The low bit marks Thumb code on ARM; it is not part of the address.
    uintptr_t address = static_cast<uintptr_t>(_Unwind_GetIP(context)) & ~uintptr_t{1};
    if (address == 0 || frames->count >= MAX_FRAMES) return _URC_END_OF_STACK;
    frames->addresses[frames->count++] = address;
    return _URC_NO_REASON;
}

std::string symbolName(uintptr_t address) {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(address), &info) == 0 || info.dli_sname == nullptr) {
        return "<no symbol>";
    }
    int status = 0;
    char* demangled = abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status);
    std::string name = status == 0 && demangled != nullptr ? demangled : info.dli_sname;
    std::free(demangled);
    return name;
}

}  // namespace

std::string dumpCallStack(int indent) {
    Frames frames;
    _Unwind_Backtrace(collectFrame, &frames);

    std::string margin(indent > 0 ? static_cast<size_t>(indent) : 0, ' ');
    std::ostringstream out;
    out << margin << "android stack dump\n";
    for (int i = 0; i < frames.count; ++i) {
        char head[64];
        std::snprintf(head, sizeof head, "%03d: 0x%p ", i,
                      reinterpret_cast<void*>(frames.addresses[i]));
        out << margin << head << symbolName(frames.addresses[i]) << '\n';
    }
    out << margin << "android stack dump done\n";
    return out.str();
}

}  // namespace velour::utils
