#include "refhost/net/http/HttpResponse.h"

namespace refhost
{

std::string HttpResponse::refusal(std::string_view status, std::string_view fields, std::string_view message,
                                  bool head)
{
    std::string text = "HTTP/1.1 ";
    text.append(status).append("\r\nConnection: close\r\nCache-Control: no-store\r\n");
    text.append("X-Content-Type-Options: nosniff\r\nContent-Type: text/plain; charset=utf-8\r\n");
    text.append(fields);
    text.append("Content-Length: ").append(std::to_string(message.size() + 1)).append("\r\n\r\n");
    if (!head)
    {
        text.append(message).append("\n");
    }
    return text;
}

}  // namespace refhost
