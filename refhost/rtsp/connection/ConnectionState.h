#pragma once

namespace refhost
{

/// What an RtspConnection does with its client, and in which order that may change.
///
/// | state     | receives     | because                                                    | then                          |
/// |-----------|--------------|------------------------------------------------------------|-------------------------------|
/// | serving   | yes          | requests are handled as they come                          | deferred, congested, draining |
/// | deferred  | no           | a request waits for its stream                             | serving, to try it again      |
/// | congested | no           | the client owes the reading of responses                   | serving, when it has read     |
/// | draining  | and drops it | the last response is queued                                |                               |
/// | closing   | no           | the stream ended or failed                                 |                               |
/// | closed    | no           | nothing of it is left                                      |                               |
///
/// Every state may also go to a later one of `closing` and `closed`. A congested connection can have a request
/// that was deferred before.
///
/// Threads: one at a time.
class ConnectionState
{
public:
    enum class State
    {
        serving,
        deferred,
        congested,
        draining,
        closing,
        closed
    };

    bool is(State state) const
    {
        return state_ == state;
    }

    /// Goes on to `next`.
    /// \throws std::logic_error when that is no transition of the table; the state stays as it was
    void enter(State next);

    /// Goes on to `closing` unless it is there or beyond.
    void fail();

private:
    static bool leadsTo(State from, State to);

    State state_ = State::serving;
};

}  // namespace refhost
