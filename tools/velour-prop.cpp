// velour-prop: reads, writes and lists system properties, as getprop and
// setprop do on a device; on a host, those of the store that the layer uses.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "platform/properties.h"
#ifndef __ANDROID__
#include "platform/PropertyStore.h"
#endif

namespace {

const char USAGE[] =
    "usage: velour-prop [--store PATH] get NAME [DEFAULT]\n"
    "       velour-prop [--store PATH] set NAME VALUE\n"
    "       velour-prop [--store PATH] list\n"
    "       velour-prop --help\n"
    "\n"
    "  get    print the value of NAME, or DEFAULT (else nothing) when it is unset or empty\n"
    "  set    give NAME the value VALUE; an empty VALUE (\"\") clears it\n"
    "  list   print every property as [name]: [value], sorted by name\n"
    "\n"
    "  --store PATH  use the property store at PATH; without it the store is\n"
    "                $VELOUR_PROPERTY_STORE, else $VELOUR_SYSROOT/dev/__properties__,\n"
    "                else /tmp/velour-properties-<uid>\n"
    "\n"
    "Values are shorter than 92 bytes; names starting with \"ro.\" can be set once.\n"
    "\n"
    "examples:\n"
    "  velour-prop set vendor.nimbo.orlo.log.level 6\n"
    "  velour-prop get vendor.nimbo.orlo.log.level 4\n"
    "  velour-prop set vendor.nimbo.orlo.log.print_source_location \"\"\n"
    "  velour-prop --store /tmp/sysroot/dev/__properties__ list\n";

int usageError(const char* message) {
    std::fprintf(stderr, "velour-prop: %s\n\n%s", message, USAGE);
    return 2;
}

using Entries = std::vector<std::pair<std::string, std::string>>;

std::string storeName() {
#ifdef __ANDROID__
    return "the system";
#else
    return velour::platform::propertyStorePath();
#endif
}

// On a host a store that cannot be opened would read as empty: say so instead.
bool storeUsable(bool forWriting) {
#ifndef __ANDROID__
    auto& store = velour::platform::PropertyStore::global();
    if (!store.valid() || (forWriting && !store.writable())) {
        std::fprintf(stderr, "velour-prop: cannot %s the property store %s\n",
                     forWriting ? "write" : "open", store.path().c_str());
        return false;
    }
#endif
    return true;
}

int get(const char* name, const char* fallback) {
    if (!storeUsable(false)) return 1;
    char value[PROP_VALUE_MAX];
    int length = __system_property_get(name, value);
    std::printf("%s\n", length > 0 ? value : fallback);
    return 0;
}

int set(const char* name, const char* value) {
    size_t length = std::strlen(value);
    if (length >= PROP_VALUE_MAX) {
        std::fprintf(stderr, "velour-prop: value for %s is too long: %zu bytes, the limit is %d\n",
                     name, length, PROP_VALUE_MAX - 1);
        return 1;
    }
#ifndef __ANDROID__
    if (!velour::platform::isValidPropertyName(name)) {
        std::fprintf(stderr,
                     "velour-prop: bad property name \"%s\": 1 to %zu letters, digits or "
                     "\"_-.@:\", no empty part between dots\n",
                     name, velour::platform::PROPERTY_NAME_LIMIT);
        return 1;
    }
#endif
    if (!storeUsable(true)) return 1;
    if (std::strncmp(name, "ro.", 3) == 0 && __system_property_find(name) != nullptr) {
        std::fprintf(stderr, "velour-prop: %s is read-only and already set\n", name);
        return 1;
    }
    if (__system_property_set(name, value) != 0) {
        std::fprintf(stderr, "velour-prop: could not set %s in %s\n", name, storeName().c_str());
        return 1;
    }
    return 0;
}

int list() {
    if (!storeUsable(false)) return 1;
    Entries all;
    auto collect = [](const prop_info* pi, void* cookie) {
        __system_property_read_callback(
            pi,
            [](void* into, const char* name, const char* value, uint32_t) {
                static_cast<Entries*>(into)->emplace_back(name, value);
            },
            cookie);
    };
    if (__system_property_foreach(collect, &all) != 0) {
        std::fprintf(stderr, "velour-prop: cannot read %s\n", storeName().c_str());
        return 1;
    }
    std::sort(all.begin(), all.end());
    for (const auto& [name, value] : all) std::printf("[%s]: [%s]\n", name.c_str(), value.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<const char*> args(argv + 1, argv + argc);
    if (!args.empty() && (std::strcmp(args[0], "--help") == 0 || std::strcmp(args[0], "-h") == 0)) {
        std::fputs(USAGE, stdout);
        return 0;
    }
    if (!args.empty() && std::strcmp(args[0], "--store") == 0) {
        if (args.size() < 2 || args[1][0] == '\0') return usageError("--store needs a path");
#ifdef __ANDROID__
        return usageError("--store is for host stores only");
#else
        // Read once, on the first property call, which comes after this.
        setenv("VELOUR_PROPERTY_STORE", args[1], 1);
        args.erase(args.begin(), args.begin() + 2);
#endif
    }
    if (args.empty()) return usageError("missing command");

    std::string command = args[0];
    if (command == "get" && (args.size() == 2 || args.size() == 3)) {
        return get(args[1], args.size() == 3 ? args[2] : "");
    }
    if (command == "set" && args.size() == 3) return set(args[1], args[2]);
    if (command == "list" && args.size() == 1) return list();
    if (command == "get" || command == "set" || command == "list") {
        return usageError(("wrong number of arguments for " + command).c_str());
    }
    return usageError(("unknown command \"" + command + "\"").c_str());
}
