#pragma once

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace refhost
{

/// Runs `call` in a process of its own, because what it does to the process cannot be taken back.
/// \returns what `call` returns, 0 to 255; -1 when the process did not end by itself
template <class Call>
int inChild(const Call& call)
{
    const pid_t child = ::fork();
    if (child == 0)
    {
        ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
        ::_exit(call());
    }
    int status = 0;
    EXPECT_EQ(child, ::waitpid(child, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace refhost
