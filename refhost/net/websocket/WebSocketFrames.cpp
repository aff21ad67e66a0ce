#include "refhost/net/websocket/WebSocketFrames.h"

#include <wslay/wslay.h>

#include <algorithm>
#include <limits>
#include <new>

namespace refhost
{

// What wslay calls.
struct WebSocketFrames::Calls
{
    static WebSocketFrames& of(void* user)
    {
        return *static_cast<WebSocketFrames*>(user);
    }

    static ssize_t receive(wslay_event_context_ptr context, std::uint8_t* buffer, std::size_t size, int,
                           void* user)
    {
        std::string_view& input = of(user).input_;
        const std::size_t count = input.copy(reinterpret_cast<char*>(buffer), size);
        input.remove_prefix(count);
        if (count == 0)
        {
            wslay_event_set_error(context, WSLAY_ERR_WOULDBLOCK);
            return -1;
        }
        return static_cast<ssize_t>(count);
    }

    static ssize_t send(wslay_event_context_ptr, const std::uint8_t* data, std::size_t size, int, void* user)
    {
        of(user).answers_->append(reinterpret_cast<const char*>(data), size);
        return static_cast<ssize_t>(size);
    }

    static void frameStarts(wslay_event_context_ptr, const wslay_event_on_frame_recv_start_arg* frame,
                            void* user)
    {
        WebSocketFrames& frames = of(user);
        frames.refused_ =
            frames.refused_ || (frame->opcode == WSLAY_TEXT_FRAME && frames.accepts_ == Accepts::binary);
        frames.dataFrame_ = wslay_is_ctrl_frame(frame->opcode) == 0 && !frames.refused_;
    }

    static void framePart(wslay_event_context_ptr, const wslay_event_on_frame_recv_chunk_arg* part,
                          void* user)
    {
        WebSocketFrames& frames = of(user);
        if (frames.dataFrame_)
        {
            frames.payload_->append(reinterpret_cast<const char*>(part->data), part->data_length);
        }
    }
};

void WebSocketFrames::Free::operator()(wslay_event_context* context) const
{
    wslay_event_context_free(context);
}

WebSocketFrames::WebSocketFrames(Accepts accepts) : accepts_(accepts)
{
    wslay_event_callbacks callbacks{};
    callbacks.recv_callback = &Calls::receive;
    callbacks.send_callback = &Calls::send;
    callbacks.on_frame_recv_start_callback = &Calls::frameStarts;
    callbacks.on_frame_recv_chunk_callback = &Calls::framePart;
    wslay_event_context_ptr made = nullptr;
    if (wslay_event_context_server_init(&made, &callbacks, this) != 0)
    {
        throw std::bad_alloc();
    }
    context_.reset(made);
    wslay_event_config_set_no_buffering(made, 1);
    wslay_event_config_set_max_recv_msg_length(made, maxFrame);
}

WebSocketFrames::~WebSocketFrames() = default;

void WebSocketFrames::read(std::string_view bytes, std::string& payload, std::string& answers)
{
    input_ = bytes;
    payload_ = &payload;
    answers_ = &answers;
    // It reads all input: an answer is queued, and sent below.
    if (wslay_event_recv(context_.get()) != 0)
    {
        wslay_event_shutdown_read(context_.get());
    }
    if (refused_ && reads())
    {
        wslay_event_shutdown_read(context_.get());
        wslay_event_queue_close(context_.get(), static_cast<std::uint16_t>(End::unsupportedData), nullptr, 0);
    }
    wslay_event_send(context_.get());
    input_ = {};
}

bool WebSocketFrames::reads() const
{
    return wslay_event_get_read_enabled(context_.get()) != 0;
}

bool WebSocketFrames::closedByPeer() const
{
    return wslay_event_get_close_received(context_.get()) != 0;
}

void WebSocketFrames::close(End reason, std::string& out)
{
    answers_ = &out;
    if (wslay_event_queue_close(context_.get(), static_cast<std::uint16_t>(reason), nullptr, 0) == 0)
    {
        wslay_event_send(context_.get());
    }
}

bool WebSocketFrames::sends() const
{
    return wslay_event_get_write_enabled(context_.get()) != 0;
}

void WebSocketFrames::append(std::string_view message, std::string& out, Kind kind)
{
    appendHead(message.size(), out, kind);
    out += message;
}

void WebSocketFrames::appendHead(std::size_t size, std::string& out, Kind kind)
{
    constexpr std::uint8_t final = 0x80;
    constexpr std::size_t short7 = 125;
    constexpr std::size_t short16 = 0xffff;
    constexpr char size16 = 126;
    constexpr char size64 = 127;
    out += static_cast<char>(final | static_cast<std::uint8_t>(kind));
    unsigned lengthBytes = 0;
    if (size <= short7)
    {
        out += static_cast<char>(size);
    }
    else
    {
        out += size <= short16 ? size16 : size64;
        lengthBytes = size <= short16 ? 2 : 8;
    }
    for (unsigned i = lengthBytes; i-- > 0;)
    {
        out += static_cast<char>(static_cast<std::uint64_t>(size) >> (8 * i) & 0xffU);
    }
}

}  // namespace refhost
