#include "refhost/rtsp/NonceBook.h"

#include <glib.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <utility>

#include "refhost/base/RandomBytes.h"
#include "refhost/rtsp/DigestAuth.h"
#include "refhost/rtsp/RtspText.h"

namespace refhost
{
namespace
{

constexpr std::size_t timeDigits = 16;
constexpr std::size_t randomDigits = 16;
constexpr std::size_t signatureDigits = 32;
constexpr std::size_t signedDigits = timeDigits + randomDigits;
constexpr std::uint64_t window = 64;  // counts may arrive out of order by as much

void appendHex64(std::string& out, std::uint64_t number)
{
    RtspText::appendHex32(out, static_cast<std::uint32_t>(number >> 32));
    RtspText::appendHex32(out, static_cast<std::uint32_t>(number));
}

std::string newKey()
{
    std::string key(32, '\0');
    fillRandom(key.data(), key.size());
    return key;
}

std::int64_t issuedAt(std::string_view nonce)
{
    std::uint64_t time = 0;
    std::from_chars(nonce.data(), nonce.data() + timeDigits, time, 16);
    return static_cast<std::int64_t>(time);
}

}  // namespace

NonceBook::NonceBook(MonotonicClock clock) : clock_(std::move(clock)), key_(newKey()) {}

std::string NonceBook::issue() const
{
    std::string nonce;
    nonce.reserve(signedDigits + signatureDigits);
    appendHex64(nonce, static_cast<std::uint64_t>(clock_()));
    std::uint64_t number = 0;
    fillRandom(&number, sizeof number);
    appendHex64(nonce, number);
    nonce += sign(nonce);
    return nonce;
}

std::string NonceBook::sign(std::string_view text) const
{
    const std::unique_ptr<char, decltype(&g_free)> hex(
        g_compute_hmac_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(key_.data()), key_.size(),
                                reinterpret_cast<const guchar*>(text.data()), text.size()),
        &g_free);
    return std::string(hex.get(), signatureDigits);
}

bool NonceBook::isFresh(std::string_view nonce, std::int64_t& issuedMs) const
{
    if (nonce.size() != signedDigits + signatureDigits ||
        !DigestAuth::equalInConstantTime(nonce.substr(signedDigits), sign(nonce.substr(0, signedDigits))))
    {
        return false;
    }
    issuedMs = issuedAt(nonce);
    return clock_() - issuedMs < lifetimeMs;
}

bool NonceBook::use(std::string_view nonce, std::uint64_t nonceCount)
{
    std::int64_t issuedMs = 0;
    if (!isFresh(nonce, issuedMs))
    {
        return false;
    }
    const std::lock_guard<std::mutex> guard(mutex_);
    const std::string key(nonce);
    auto found = uses_.find(key);
    if (found == uses_.end())
    {
        if (issuedMs <= forgottenMs_)
        {
            return false;
        }
        remember(key);
        found = uses_.find(key);
    }
    if (nonceCount == 0)
    {
        return true;
    }
    Uses& uses = found->second;
    if (nonceCount > uses.highest)
    {
        const std::uint64_t step = nonceCount - uses.highest;
        uses.seen = step < window ? uses.seen << step : 0;
        uses.seen |= 1;
        uses.highest = nonceCount;
        return true;
    }
    const std::uint64_t behind = uses.highest - nonceCount;
    const std::uint64_t bit = behind < window ? std::uint64_t{1} << behind : 0;
    if (bit == 0 || (uses.seen & bit) != 0)
    {
        return false;
    }
    uses.seen |= bit;
    return true;
}

void NonceBook::remember(const std::string& nonce)
{
    if (uses_.size() >= rememberedMost)
    {
        forgottenMs_ = std::max(forgottenMs_, issuedAt(order_.front()));
        uses_.erase(order_.front());
        order_.pop_front();
    }
    uses_.emplace(nonce, Uses());
    order_.push_back(nonce);
}

std::size_t NonceBook::remembered() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return uses_.size();
}

}  // namespace refhost
