#pragma once
// Tested by tests/e2e/test_reload.py, tests/refhost/ConfigReload_test.cpp.

#include <functional>
#include <string>
#include <vector>

namespace refhost
{

/// Has the running server read its configuration again: a signal, the command line and the HTTP service ask for it
/// alike. Threads: any.
class Reloader
{
public:
    /// What became of a request.
    struct Outcome
    {
        /// Why nothing changed, one line each, such as "FILE:LINE:COLUMN: …"; empty: the configuration is in force.
        std::vector<std::string> problems;
        /// What is valid but probably unintended, one line each.
        std::vector<std::string> warnings;
        /// The names of what changed, such as "[limits] sessions"; those that need a restart are not among them.
        std::vector<std::string> applied;
        /// The names of what changed and stays as it was until the server is restarted.
        std::vector<std::string> needRestart;

        bool succeeded() const
        {
            return problems.empty();
        }
    };

    using Done = std::function<void(const Outcome& outcome)>;

    virtual ~Reloader() = default;

    /// Asks for it and returns at once. Requests are served in turn.
    /// \param done  called once with the outcome, on a thread of the server's control, which it must not hold up; null:
    ///              the log alone says it. Not called when the server ends before.
    virtual void requestReload(Done done) = 0;
};

}  // namespace refhost
