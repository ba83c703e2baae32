#pragma once

#include <cstddef>
#include <new>
#include <type_traits>

namespace velour::core {

using JobAction = void (*)(void* args);

// One recorded call: its body and its arguments, in place. The size is fixed
// so that a buffer is a plain array and recording is a few stores.
struct Job {
    JobAction action;
    alignas(8) unsigned char args[120];
};

static_assert(sizeof(Job) == 128, "a job is 128 bytes on every target");
static_assert(offsetof(Job, args) == 8, "arguments start 8-aligned after the action");
static_assert(alignof(Job) == 8, "jobs are 8-aligned");

// Stores a job's arguments. Args is a plain record of the call's parameters in
// declaration order.
template <typename Args>
inline void storeArgs(Job& job, const Args& args) {
    static_assert(sizeof(Args) <= sizeof(Job::args), "arguments must fit in a job");
    static_assert(std::is_trivially_copyable<Args>::value, "job arguments are copied bitwise");
    // A copy construction in place lets the compiler store field by field
    // from registers; a memcpy goes through a temporary on some targets.
    new (job.args) Args(args);
}

}  // namespace velour::core
