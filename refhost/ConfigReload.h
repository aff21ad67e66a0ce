#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include "refhost/ConfigSource.h"
#include "refhost/base/Descriptor.h"
#include "refhost/base/Mutex.h"
#include "refhost/base/Replaceable.h"
#include "refhost/config/Config.h"
#include "refhost/config/Reloader.h"

namespace refhost
{

/// Reads the configuration again and applies what differs to the parts of the running server: all of it, or nothing.
///
/// Threads: requestReload() and running() any; the rest the thread that serves the requests, which is the program's
/// first and none that media needs.
class ConfigReload : public Reloader
{
public:
    /// Applies a configuration to one part of the server.
    /// \returns why it cannot be applied, with nothing changed in the part; or empty
    using Apply = std::function<std::string(const ServerConfig& config)>;

    /// Max requests that wait; further ones are answered at once, as failed.
    static constexpr std::size_t maxWaiting = 64;

    ConfigReload(ConfigSource source, ServerConfig running);

    /// Adds a part. Parts are applied in the order in which they were added; those that can fail come first, and
    /// are given the running configuration again when a later one of them fails.
    void add(Apply apply);

    /// Calls these before and after each reload().
    void watch(std::function<void()> before, std::function<void()> after);

    void requestReload(Done done) override;

    /// The configuration in force; never null.
    std::shared_ptr<const ServerConfig> running() const
    {
        return running_.get();
    }

    /// Readable while requests wait.
    int descriptor() const
    {
        return wakeUp_.get();
    }
    /// Serves the requests that wait.
    void serve();

    /// Reads and applies the configuration now, and logs the outcome.
    Outcome reload();

private:
    Outcome apply();
    std::string applyTo(const ServerConfig& config) const;

    const ConfigSource source_;
    Replaceable<ServerConfig> running_;
    std::vector<Apply> parts_;
    std::function<void()> before_;
    std::function<void()> after_;
    Descriptor wakeUp_;
    Mutex mutex_;
    std::deque<Done> waiting_ OV_GUARDED_BY(mutex_);
};

}  // namespace refhost
