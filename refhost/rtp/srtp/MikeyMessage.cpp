#include "refhost/rtp/srtp/MikeyMessage.h"

#include <openssl/crypto.h>

#include "refhost/base/ByteOrder.h"
#include "refhost/base/RandomBytes.h"

namespace refhost
{
namespace
{

constexpr std::uint8_t version = 1;
constexpr std::uint8_t preSharedKeyMessage = 0;
constexpr std::uint8_t srtpMap = 0;  // of crypto sessions
constexpr std::size_t randomBytes = 16;

/// Payload types (RFC 3830, section 6.1).
enum Payload : std::uint8_t
{
    lastPayload = 0,
    keyTransport = 1,
    timestamp = 5,
    identity = 6,
    securityPolicy = 10,
    randomValue = 11,
    keyData = 20,
    extension = 21
};

/// Parameters of an SRTP policy (RFC 3830, section 6.10.1; RFC 7714, section 14.3).
enum Parameter : std::uint8_t
{
    encryption = 0,
    encryptionKeySize = 1,
    authentication = 2,
    authenticationKeySize = 3,
    saltSize = 4,
    keyDerivationRate = 6,
    rtpEncrypted = 7,
    rtcpEncrypted = 8,
    rtpAuthenticated = 10,
    authenticationTagSize = 11,
    prefixSize = 12,
    aeadTagSize = 20
};

constexpr std::uint8_t aesCounter = 1;
constexpr std::uint8_t aesGcm = 6;
constexpr std::uint8_t hmacSha1 = 1;
constexpr std::uint8_t hmacSha1KeySize = 20;
constexpr std::uint8_t trafficKey = 2;  // a key of its own, not one to derive others from
constexpr std::uint8_t trafficKeyWithSalt = 3;

class Writer
{
public:
    explicit Writer(std::vector<std::uint8_t>& out) : out_(out) {}

    void put8(std::uint8_t value)
    {
        out_.push_back(value);
    }

    void put16(std::size_t value)
    {
        put8(static_cast<std::uint8_t>(value >> 8U));
        put8(static_cast<std::uint8_t>(value));
    }

    void put32(std::uint32_t value)
    {
        put16(value >> 16U);
        put16(value & 0xffffU);
    }

    void put(const std::uint8_t* data, std::size_t size)
    {
        out_.insert(out_.end(), data, data + size);
    }

    void putRandom(std::size_t size)
    {
        out_.resize(out_.size() + size);
        fillRandom(out_.data() + out_.size() - size, size);
    }

    void putParameter(Parameter type, std::uint8_t value)
    {
        put8(type);
        put8(1);
        put8(value);
    }

private:
    std::vector<std::uint8_t>& out_;
};

void putPolicy(Writer& out, const SrtpSuiteInfo& info)
{
    const bool aead = info.suite == SrtpSuite::aeadAes128Gcm;
    constexpr std::size_t parameterSize = 3;
    out.put8(keyTransport);
    out.put8(0);  // number of the policy
    out.put8(0);  // for SRTP
    out.put16((aead ? 7U : 8U) * parameterSize);
    out.putParameter(encryption, aead ? aesGcm : aesCounter);
    out.putParameter(encryptionKeySize, static_cast<std::uint8_t>(info.keySize));
    out.putParameter(rtpEncrypted, 1);
    out.putParameter(rtcpEncrypted, 1);
    if (aead)
    {
        out.putParameter(authentication, 0);  // none beside the cipher's
        out.putParameter(rtpAuthenticated, 1);
        out.putParameter(aeadTagSize, static_cast<std::uint8_t>(info.rtpTag));
        return;
    }
    out.putParameter(authentication, hmacSha1);
    // GStreamer reads a short tag's size here.
    out.putParameter(authenticationKeySize, info.rtpTag == 4 ? 4 : hmacSha1KeySize);
    out.putParameter(rtpAuthenticated, 1);
    out.putParameter(authenticationTagSize, static_cast<std::uint8_t>(info.rtpTag));
}

/// Bytes that are taken from the front; once too few are left, every result is empty.
class Reader
{
public:
    Reader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    /// \returns null when fewer are left
    const std::uint8_t* take(std::size_t count)
    {
        if (count > size_)
        {
            failed_ = true;
            size_ = 0;
            return nullptr;
        }
        const std::uint8_t* const at = data_;
        data_ += count;
        size_ -= count;
        return at;
    }

    std::uint8_t take8()
    {
        const std::uint8_t* const at = take(1);
        return at == nullptr ? 0 : *at;
    }

    std::size_t take16()
    {
        const std::uint8_t* const at = take(2);
        return at == nullptr ? 0 : readBig16(at);
    }

    /// The next `count` bytes; an empty reader that failed when fewer are left.
    Reader takeReader(std::size_t count)
    {
        const std::uint8_t* const at = take(count);
        Reader part(at, at == nullptr ? 0 : count);
        part.failed_ = failed_;
        return part;
    }

    bool empty() const
    {
        return size_ == 0;
    }

    std::size_t size() const
    {
        return size_;
    }

    bool failed() const
    {
        return failed_;
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    bool failed_ = false;
};

/// The parameters of a policy, each at its default.
struct Policy
{
    std::uint8_t cipher = aesCounter;
    std::uint8_t cipherKey = 16;
    std::uint8_t authenticator = hmacSha1;
    std::uint8_t authenticatorKey = hmacSha1KeySize;
    std::uint8_t tag = 0;  // 0: not said
    bool supported = true;

    bool read(Reader parameters)
    {
        while (!parameters.empty())
        {
            const std::uint8_t type = parameters.take8();
            const std::uint8_t size = parameters.take8();
            const std::uint8_t* const value = parameters.take(size);
            if (value == nullptr || size == 0)
            {
                return false;
            }
            // All known ones are small numbers, but for their size.
            std::uint8_t number = value[size - 1];
            for (std::size_t i = 0; i + 1 < size; ++i)
            {
                supported = supported && value[i] == 0;
            }
            note(type, number);
        }
        return !parameters.failed();
    }

    std::optional<SrtpSuite> suite() const
    {
        if (!supported || cipherKey != 16)
        {
            return std::nullopt;
        }
        if (cipher == aesGcm)
        {
            return tag == 0 || tag == 16 ? std::optional(SrtpSuite::aeadAes128Gcm) : std::nullopt;
        }
        if (cipher != aesCounter || authenticator != hmacSha1)
        {
            return std::nullopt;
        }
        // GStreamer writes the size of the tag as that of the key.
        const std::uint8_t bytes = tag != 0 ? tag : authenticatorKey;
        if (bytes == 4)
        {
            return SrtpSuite::aesCm128HmacSha1Tag32;
        }
        return bytes == 10 || bytes == hmacSha1KeySize ? std::optional(SrtpSuite::aesCm128HmacSha1Tag80)
                                                       : std::nullopt;
    }

private:
    void note(std::uint8_t type, std::uint8_t number)
    {
        switch (type)
        {
            case encryption:
                cipher = number;
                break;
            case encryptionKeySize:
                cipherKey = number;
                break;
            case authentication:
                authenticator = number;
                break;
            case authenticationKeySize:
                authenticatorKey = number;
                break;
            case authenticationTagSize:
            case aeadTagSize:
                tag = number;
                break;
            case rtpEncrypted:
            case rtcpEncrypted:
            case rtpAuthenticated:
                supported = supported && number == 1;
                break;
            case keyDerivationRate:
            case prefixSize:
                supported = supported && number == 0;
                break;
            default:
                break;
        }
    }
};

/// What the payloads of a message say.
struct Findings
{
    std::optional<Policy> policy;
    std::vector<std::uint8_t> key;  // with its salt

    Findings() = default;
    Findings(const Findings&) = delete;
    Findings& operator=(const Findings&) = delete;
    ~Findings()
    {
        OPENSSL_cleanse(key.data(), key.size());
    }
};

bool readPolicy(Reader& in, Findings& out)
{
    in.take8();  // its number: the first one counts
    const bool srtp = in.take8() == 0;
    const Reader parameters = in.takeReader(in.take16());
    Policy policy;
    if (in.failed() || !srtp || !policy.read(parameters))
    {
        return false;
    }
    if (!out.policy)
    {
        out.policy = policy;
    }
    return true;
}

/// Reads the first key of an unencrypted key transport.
bool readKeys(Reader in, Findings& out)
{
    in.take8();  // the next payload: further keys are not used
    const std::uint8_t kind = in.take8();
    const std::size_t size = in.take16();
    const std::uint8_t* const key = in.take(size);
    const std::uint8_t type = kind >> 4U;
    if (key == nullptr || (type != trafficKey && type != trafficKeyWithSalt))
    {
        return false;
    }
    out.key.reserve(in.size() + size);
    out.key.assign(key, key + size);
    if (type == trafficKeyWithSalt)
    {
        const std::size_t salt = in.take16();
        const std::uint8_t* const bytes = in.take(salt);
        if (bytes == nullptr || in.failed())
        {
            return false;
        }
        out.key.insert(out.key.end(), bytes, bytes + salt);
    }
    return true;
}

bool readKeyTransport(Reader& in, Findings& out)
{
    const bool plain = in.take8() == 0;
    const Reader keys = in.takeReader(in.take16());
    const bool unsigned_ = in.take8() == 0;
    return !in.failed() && plain && unsigned_ && out.key.empty() && readKeys(keys, out);
}

/// Reads one payload. \returns false for a malformed one and one that a traffic key in the clear does not have
bool readPayload(std::uint8_t type, Reader& in, Findings& out)
{
    constexpr std::size_t ntpSize = 8;
    constexpr std::size_t counterSize = 4;
    switch (type)
    {
        case keyTransport:
            return readKeyTransport(in, out);
        case securityPolicy:
            return readPolicy(in, out);
        case timestamp:
            return in.take(in.take8() == 2 ? counterSize : ntpSize) != nullptr;
        case randomValue:
            return in.take(in.take8()) != nullptr && !in.failed();
        case identity:
        case extension:
            in.take8();
            return in.take(in.take16()) != nullptr && !in.failed();
        default:
            return false;
    }
}

}  // namespace

std::vector<std::uint8_t> MikeyMessage::write(const SrtpKey& key, const std::vector<CryptoSession>& sessions,
                                              WallTime now)
{
    constexpr std::size_t usualSize = 160;
    std::vector<std::uint8_t> bytes;
    bytes.reserve(usualSize + sessions.size() * 9);  // no copies of the key are left behind
    Writer out(bytes);
    out.put8(version);
    out.put8(preSharedKeyMessage);
    out.put8(timestamp);
    out.put8(0);  // no answer is requested; the function to derive keys is not used
    out.putRandom(4);
    out.put8(static_cast<std::uint8_t>(sessions.size()));
    out.put8(srtpMap);
    for (const CryptoSession& session : sessions)
    {
        out.put8(0);  // number of the policy
        out.put32(session.ssrc);
        out.put32(session.rolloverCounter);
    }
    out.put8(randomValue);
    out.put8(0);  // as NTP counts time
    const NtpTime time(now);
    out.put32(time.wholeSeconds());
    out.put32(time.fraction());
    out.put8(securityPolicy);
    out.put8(randomBytes);
    out.putRandom(randomBytes);
    putPolicy(out, infoOf(key.suite()));
    constexpr std::size_t keyHeaderSize = 4;
    out.put8(lastPayload);
    out.put8(0);  // not encrypted
    out.put16(keyHeaderSize + key.size());
    out.put8(lastPayload);
    out.put8(trafficKey << 4U);
    out.put16(key.size());
    out.put(key.data(), key.size());
    out.put8(0);  // not signed
    return bytes;
}

std::optional<MikeyMessage> MikeyMessage::parse(const std::uint8_t* data, std::size_t size)
{
    if (size > maxSize)
    {
        return std::nullopt;
    }
    Reader in(data, size);
    const bool known = in.take8() == version && in.take8() == preSharedKeyMessage;
    std::uint8_t next = in.take8();
    in.take(1 + 4);  // whether to answer, and the message's number
    const std::size_t count = in.take8();
    const bool srtp = in.take8() == srtpMap;
    std::vector<CryptoSession> sessions;
    for (std::size_t i = 0; i < count; ++i)
    {
        const std::uint8_t* const session = in.take(9);
        if (session == nullptr)
        {
            return std::nullopt;
        }
        sessions.push_back({readBig32(session + 1), readBig32(session + 5)});
    }
    if (!known || !srtp || in.failed())
    {
        return std::nullopt;
    }
    Findings findings;
    while (next != lastPayload)
    {
        const std::uint8_t type = next;
        next = in.take8();
        if (in.failed() || !readPayload(type, in, findings))
        {
            return std::nullopt;
        }
    }
    const auto suite = findings.policy.value_or(Policy()).suite();
    const auto key = suite ? SrtpKey::of(*suite, findings.key.data(), findings.key.size()) : std::nullopt;
    if (!key)
    {
        return std::nullopt;
    }
    return MikeyMessage{*key, std::move(sessions)};
}

}  // namespace refhost
