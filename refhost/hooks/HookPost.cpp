#include "refhost/hooks/HookPost.h"

#include <curl/curl.h>
#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "refhost/base/Log.h"

namespace refhost
{
namespace
{

using Easy = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;
using Multi = std::unique_ptr<CURLM, decltype(&curl_multi_cleanup)>;
using List = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

void initializeOnce()
{
    static const CURLcode done = curl_global_init(CURL_GLOBAL_DEFAULT);
    (void)done;
}

/// The answer's body is read and dropped.
std::size_t drop(char* /*bytes*/, std::size_t size, std::size_t count, void* total)
{
    std::size_t& sum = *static_cast<std::size_t*>(total);
    sum += size * count;
    return sum > HookPost::maxAnswer ? 0 : size * count;
}

struct Request
{
    Easy easy{curl_easy_init(), &curl_easy_cleanup};
    List headers{curl_slist_append(nullptr, "Content-Type: application/json"), &curl_slist_free_all};
    std::size_t answered = 0;

    void prepare(const std::string& url, const std::string& input)
    {
        CURL* const handle = easy.get();
        curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
        curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
        // Its end does not wait for a look-up of the name.
        curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);
        curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
        curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, input.c_str());
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(input.size()));
        curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &drop);
        curl_easy_setopt(handle, CURLOPT_WRITEDATA, &answered);
        curl_easy_setopt(handle, CURLOPT_USERAGENT, "ovrtspd");
    }
};

HookOutcome outcomeOf(CURLM* multi, CURL* easy)
{
    int left = 0;
    const CURLMsg* const message = curl_multi_info_read(multi, &left);
    const CURLcode code =
        message != nullptr && message->msg == CURLMSG_DONE ? message->data.result : CURLE_FAILED_INIT;
    if (code == CURLE_WRITE_ERROR)
    {
        return {false, "the answer is too long"};
    }
    if (code != CURLE_OK)
    {
        return {false, Log::safe(curl_easy_strerror(code))};
    }
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    return {status / 100 == 2, fmt::format("status {}", status)};
}

}  // namespace

bool HookPost::isUrl(std::string_view target)
{
    return target.substr(0, 7) == "http://" || target.substr(0, 8) == "https://";
}

HookOutcome HookPost::run(const std::string& url, const std::string& input,
                          HookStop::Clock::time_point deadline, const HookStop& stop)
{
    initializeOnce();
    Request request;
    const Multi multi(curl_multi_init(), &curl_multi_cleanup);
    if (!request.easy || !multi)
    {
        return {false, "no memory"};
    }
    request.prepare(url, input);
    curl_multi_add_handle(multi.get(), request.easy.get());
    HookOutcome outcome{false, "no answer in time"};
    while (HookStop::Clock::now() < deadline)
    {
        int running = 0;
        if (curl_multi_perform(multi.get(), &running) != CURLM_OK || running == 0)
        {
            outcome = outcomeOf(multi.get(), request.easy.get());
            break;
        }
        curl_waitfd stopped{stop.descriptor(), CURL_WAIT_POLLIN, 0};
        curl_multi_poll(multi.get(), &stopped, 1, HookStop::millisecondsTo(deadline), nullptr);
        if (stopped.revents != 0)
        {
            outcome.text = "the server ends";
            break;
        }
    }
    curl_multi_remove_handle(multi.get(), request.easy.get());
    return outcome;
}

}  // namespace refhost
