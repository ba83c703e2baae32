#include "TestSysroot.h"

#include <ftw.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace velour::test {

namespace {

void makeFolders(const std::string& path) {
    for (size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1))
        mkdir(path.substr(0, at).c_str(), 0755);
    mkdir(path.c_str(), 0755);
}

}  // namespace

TestSysroot::TestSysroot(bool bind) {
    char pattern[] = "/tmp/velour-test-XXXXXX";
    if (!mkdtemp(pattern)) throw std::runtime_error("mkdtemp failed");
    path = pattern;
    // The folders a device has from the start.
    for (const char* folder : {"/dev", "/sdcard", "/data/local/tmp", "/odm/etc/tesselfx"})
        makeFolders(path + folder);
    if (bind) {
        setenv("VELOUR_SYSROOT", path.c_str(), 1);
        setenv("VELOUR_PROPERTY_STORE", store().c_str(), 1);
    }
}

TestSysroot::~TestSysroot() {
    nftw(
        path.c_str(),
        [](const char* file, const struct stat*, int, struct FTW*) { return remove(file); }, 16,
        FTW_DEPTH | FTW_PHYS);
}

std::vector<std::string> TestSysroot::environment() const {
    return {"VELOUR_SYSROOT=" + path, "VELOUR_PROPERTY_STORE=" + store()};
}

void TestSysroot::write(const std::string& devicePath, const std::string& text) const {
    std::string file = path + devicePath;
    makeFolders(file.substr(0, file.rfind('/')));
    std::ofstream(file) << text;
}

std::string TestSysroot::read(const std::string& devicePath) const {
    return readFile(path + devicePath);
}

}  // namespace velour::test
