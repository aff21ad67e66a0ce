#include "refhost/doctor/ClockCheck.h"

#include <sys/timex.h>

#include "refhost/base/BuildTime.h"
#include "refhost/base/HostClock.h"
#include "refhost/doctor/Recordings.h"

namespace refhost
{

ClockCheck::ClockCheck(const ServerConfig& config) : config_(config) {}

std::string ClockCheck::subject() const
{
    return "clock";
}

std::vector<Finding> ClockCheck::run()
{
    const char* const mend =
        "Have it set from the network: apt-get install systemd-timesyncd (or chrony), and systemctl enable "
        "systemd-time-wait-sync";
    if (HostClock::system().wallNow() < BuildTime::date())
    {
        return {Finding::failure("it displays a time before this program was built", mend)};
    }
    timex state{};
    const int result = ::adjtimex(&state);
    if (result < 0 || (result == TIME_ERROR && (state.status & STA_UNSYNC) != 0))
    {
        const char* const text = "nothing keeps it synchronised";
        return {recordsAnything(config_)
                    ? Finding::failure(std::string(text) + ", and it dates recordings", mend)
                    : Finding::warning(text, mend)};
    }
    return {Finding::good("it is synchronised")};
}

}  // namespace refhost
