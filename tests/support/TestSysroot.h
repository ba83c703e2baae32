#pragma once

#include <string>
#include <vector>

namespace velour::test {

// A fresh folder standing for the device's file system, with its own
// property store. Call before anything reads a property or a device path.
class TestSysroot {
  public:
    // With bind false the folder is made but this process keeps its own
    // environment: for folders handed to child processes.
    explicit TestSysroot(bool bind = true);
    // Removes the folder and all in it.
    ~TestSysroot();
    TestSysroot(const TestSysroot&) = delete;
    TestSysroot& operator=(const TestSysroot&) = delete;
    // VELOUR_SYSROOT and VELOUR_PROPERTY_STORE naming this folder.
    std::vector<std::string> environment() const;
    const std::string& root() const { return path; }
    std::string store() const { return path + "/dev/__properties__"; }
    // Writes a file under the sysroot, creating its folders.
    void write(const std::string& devicePath, const std::string& text) const;

  private:
    std::string path;
};

// Runs a program to its end; returns its exit status and what it printed.
struct RunResult {
    int status;
    std::string out;
    std::string err;
};
// extraEnvironment entries ("NAME=value") replace those of this process.
RunResult run(const std::string& program, const std::vector<std::string>& args,
              const std::vector<std::string>& extraEnvironment = {});

}  // namespace velour::test
