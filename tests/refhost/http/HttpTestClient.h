#pragma once

#include <cstddef>
#include <cstdlib>
#include <map>
#include <string>

#include "refhost/base/IgnoreCase.h"
#include "tests/refhost/rtsp/connection/TestClient.h"

namespace refhost
{
namespace test
{

/// What the HTTP service replied.
struct HttpAnswer
{
    int status = 0;                                  ///< 0: nothing whole came
    std::multimap<std::string, std::string> fields;  ///< names in lower case
    std::string body;
    bool complete = false;  ///< the body is as long as announced

    /// The first of that name; empty when there is none.
    std::string field(const std::string& name) const
    {
        const auto found = fields.find(lowerCase(std::string_view(name)));
        return found == fields.end() ? "" : found->second;
    }
};

/// A blocking HTTP client with bounded waits.
class HttpTestClient : public TestClient
{
public:
    using TestClient::TestClient;

    static std::string text(const std::string& method, const std::string& target,
                            const std::string& headers = "", const std::string& body = "")
    {
        std::string all = method + " " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + headers;
        if (!body.empty())
        {
            all += "Content-Length: " + std::to_string(body.size()) + "\r\n";
        }
        return all + "\r\n" + body;
    }

    HttpAnswer request(const std::string& method, const std::string& target, const std::string& headers = "",
                       const std::string& body = "")
    {
        trySend(text(method, target, headers, body));
        return answer(method == "HEAD");
    }

    HttpAnswer get(const std::string& target, const std::string& headers = "")
    {
        return request("GET", target, headers);
    }

    /// Waits for the head of the next reply.
    bool awaitHead()
    {
        return fillUntil("\r\n\r\n");
    }

    /// The next reply.
    HttpAnswer answer(bool head = false)
    {
        HttpAnswer made;
        if (!fillUntil("\r\n\r\n"))
        {
            return made;
        }
        const std::size_t end = bytes_.find("\r\n\r\n");
        parseHead(bytes_.substr(0, end + 2), made);
        bytes_.erase(0, end + 4);
        const bool bodiless = head || made.status == 204 || made.status == 304 || made.status < 200;
        if (bodiless)
        {
            made.complete = true;
        }
        else if (made.field("transfer-encoding") == "chunked")
        {
            readChunks(made);
        }
        else if (made.fields.count("content-length") > 0)
        {
            readLength(made);
        }
        else
        {
            while (more())
            {
            }
            made.body = std::move(bytes_);
            bytes_.clear();
            made.complete = true;
        }
        return made;
    }

    /// Bytes received and not part of a reply yet; waits for some.
    std::string raw()
    {
        if (bytes_.empty())
        {
            more();
        }
        return std::exchange(bytes_, {});
    }

private:
    bool more()
    {
        if (end_)
        {
            return false;
        }
        const std::string came = wait(5000);
        bytes_ += came;
        return !came.empty();
    }

    bool fillUntil(const std::string& text)
    {
        while (bytes_.find(text) == std::string::npos)
        {
            if (!more())
            {
                return false;
            }
        }
        return true;
    }

    static void parseHead(const std::string& head, HttpAnswer& made)
    {
        std::size_t line = head.find("\r\n");
        made.status = std::atoi(head.substr(9, 3).c_str());
        while (line + 2 < head.size())
        {
            const std::size_t from = line + 2;
            line = head.find("\r\n", from);
            const std::size_t colon = head.find(':', from);
            made.fields.emplace(lowerCase(std::string_view(head).substr(from, colon - from)),
                                head.substr(colon + 2, line - colon - 2));
        }
    }

    void readLength(HttpAnswer& made)
    {
        const auto length = static_cast<std::size_t>(std::stoull(made.field("content-length")));
        while (bytes_.size() < length && more())
        {
        }
        made.complete = bytes_.size() >= length;
        made.body = bytes_.substr(0, length);
        bytes_.erase(0, made.body.size());
    }

    void readChunks(HttpAnswer& made)
    {
        while (fillUntil("\r\n"))
        {
            const std::size_t line = bytes_.find("\r\n");
            const std::size_t size = std::stoul(bytes_.substr(0, line), nullptr, 16);
            while (bytes_.size() < line + 2 + size + 2)
            {
                if (!more())
                {
                    return;
                }
            }
            made.body += bytes_.substr(line + 2, size);
            bytes_.erase(0, line + 2 + size + 2);
            if (size == 0)
            {
                made.complete = true;
                return;
            }
        }
    }

    std::string bytes_;
};

}  // namespace test
}  // namespace refhost
