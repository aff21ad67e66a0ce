#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace rtspload
{

/// Opens SRTP and SRTCP of one track, by libsrtp2.
class SrtpReader
{
public:
    SrtpReader();
    ~SrtpReader();
    SrtpReader(const SrtpReader&) = delete;
    SrtpReader& operator=(const SrtpReader&) = delete;

    /// \param keyManagement  value of the SDP attribute "key-mgmt": a MIKEY message that ends with a key of 30 bytes
    ///                       in the clear
    /// \returns false when it is none
    bool start(std::string_view keyManagement);

    /// Each opens a packet in place. \returns false when it is not authentic
    bool open(std::uint8_t* data, std::size_t& size);
    bool openRtcp(std::uint8_t* data, std::size_t& size);

private:
    struct Session;
    std::unique_ptr<Session> session_;
};

}  // namespace rtspload
