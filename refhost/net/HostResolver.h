#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "refhost/base/SocketAddress.h"
#include "refhost/threads/EventLoop.h"

namespace refhost
{

/// Finds the addresses of hosts by name, on a few threads that all callers share: the system's look-up blocks,
/// for half a minute where name servers are silent.
///
/// A host is looked up by one thread at a time, whoever asks for it, so that a name that nobody answers for
/// holds up one thread. Threads are made when they are needed, and end when they are not.
///
/// Threads: any.
class HostResolver
{
public:
    static constexpr std::size_t maxThreads = 4;
    static constexpr std::size_t maxQueries = 4096;
    static constexpr std::size_t maxAddresses = 16;  ///< of a host; others are left out

    struct Result
    {
        std::vector<SocketAddress> addresses;  ///< without port; at least one, or `error` says why not
        std::string error;
    };

    /// Blocks until it has found, or failed.
    using LookUp = std::function<Result(const std::string& host)>;
    using Found = std::function<void(const Result& result)>;

    /// What the system knows.
    static Result systemLookUp(const std::string& host);

    /// \param lookUp  called on the resolver's threads
    explicit HostResolver(LookUp lookUp = &HostResolver::systemLookUp);
    /// Waits a second at most: a thread that still looks up then ends by itself later.
    /// Requires: no query is left.
    ~HostResolver();
    HostResolver(const HostResolver&) = delete;
    HostResolver& operator=(const HostResolver&) = delete;

    struct State;
    struct Waiter;

    /// One question. Its end abandons it: the callback is not called any more.
    /// Threads: the loop's.
    class Query
    {
    public:
        Query(std::shared_ptr<State> state, std::shared_ptr<Waiter> waiter);
        ~Query();
        Query(const Query&) = delete;
        Query& operator=(const Query&) = delete;

    private:
        const std::shared_ptr<State> state_;
        const std::shared_ptr<Waiter> waiter_;
    };

    /// Asks for a host's addresses. Beyond maxQueries, the answer is an error.
    /// \param host   a name or a numeric address
    /// \param found  called once on the thread of `loop`, after the return; it may end the query
    /// Requires: on the thread of `loop`.
    std::unique_ptr<Query> find(EventLoop& loop, const std::string& host, Found found);

private:
    const std::shared_ptr<State> state_;
};

}  // namespace refhost
