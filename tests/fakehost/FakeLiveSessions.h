#pragma once

/// Access of tests to the sessions and records of the fake host's LiveDispatcherMgr.
class FakeLiveSessions
{
public:
    static constexpr int usualMtu = 1440;

    /// Ends every session, drops every record and sets the MTU to the usual one, without a line in the log.
    static void clear();

    /// Until clear(), LiveDispatcherMgr::getInstance() gives an empty handle, which a real host never does.
    static void haveNoDispatcher();
};
