#include "refhost/access/NonceStore.h"

#include <glib.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "refhost/access/DigestAuth.h"
#include "refhost/base/Hex.h"
#include "refhost/base/RandomBytes.h"

namespace refhost
{
namespace
{

constexpr std::size_t timeDigits = 16;
constexpr std::size_t randomDigits = 16;
constexpr std::size_t signatureDigits = 32;
constexpr std::size_t signedDigits = timeDigits + randomDigits;
constexpr std::size_t nonceDigits =
    signedDigits + 2 * signatureDigits;  // signatures of address and connection
constexpr std::uint64_t window = 64;     // counts may arrive out of order within it

std::string newKey()
{
    std::string key(32, '\0');
    fillRandom(key.data(), key.size());
    return key;
}

/// Requires: a nonce of ours, whose time is in milliseconds.
MonotonicTime issuedAt(std::string_view nonce)
{
    const std::uint64_t ms = parseHex(nonce.substr(0, timeDigits)).value_or(0);
    return MonotonicTime(std::chrono::milliseconds(static_cast<std::int64_t>(ms)));
}

}  // namespace

NonceStore::NonceStore(const HostClock& clock) : clock_(clock), key_(newKey()) {}

std::string NonceStore::issue(const Client& client) const
{
    std::string nonce;
    nonce.reserve(nonceDigits);
    const auto now = std::chrono::floor<std::chrono::milliseconds>(clock_.now().time_since_epoch());
    appendHex64(nonce, static_cast<std::uint64_t>(now.count()));
    std::uint64_t number = 0;
    fillRandom(&number, sizeof number);
    appendHex64(nonce, number);
    nonce += addressSignature(nonce, client);
    nonce += connectionSignature(nonce, client);
    return nonce;
}

std::string NonceStore::addressSignature(std::string_view text, const Client& client) const
{
    return sign(text, client.address.data(), client.address.size());
}

/// \param text  the nonce with its address signature: the connection matters only at its address
std::string NonceStore::connectionSignature(std::string_view text, const Client& client) const
{
    return sign(text, &client.connection, sizeof client.connection);
}

std::string NonceStore::sign(std::string_view text, const void* binding, std::size_t size) const
{
    std::string bound(text);
    bound.append(static_cast<const char*>(binding), size);
    const std::unique_ptr<char, decltype(&g_free)> hex(
        g_compute_hmac_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(key_.data()), key_.size(),
                                reinterpret_cast<const guchar*>(bound.data()), bound.size()),
        &g_free);
    return std::string(hex.get(), signatureDigits);
}

bool NonceStore::isIssuedTo(std::string_view nonce, const Client& client) const
{
    return nonce.size() == nonceDigits &&
           DigestAuth::equalInConstantTime(nonce.substr(signedDigits, signatureDigits),
                                           addressSignature(nonce.substr(0, signedDigits), client));
}

bool NonceStore::isOfConnection(std::string_view nonce, const Client& client) const
{
    constexpr std::size_t at = signedDigits + signatureDigits;
    return DigestAuth::equalInConstantTime(nonce.substr(at),
                                           connectionSignature(nonce.substr(0, at), client));
}

bool NonceStore::use(std::string_view nonce, std::uint64_t nonceCount, const Client& client)
{
    if (!isIssuedTo(nonce, client))
    {
        return false;
    }
    const MonotonicTime issued = issuedAt(nonce);
    const Duration age = clock_.now() - issued;
    if (nonceCount == 0)
    {
        return age < uncountedLifetime || isOfConnection(nonce, client);
    }
    // Without the connection's part: another spelling of it must not make a new use.
    const std::string used(nonce.substr(0, signedDigits + signatureDigits));
    return age < lifetime && useCounted(used, nonceCount, issued);
}

bool NonceStore::useCounted(const std::string& nonce, std::uint64_t nonceCount, MonotonicTime issued)
{
    const MutexLock guard(mutex_);
    auto found = uses_.find(nonce);
    if (found == uses_.end())
    {
        if (issued <= forgotten_)
        {
            return false;
        }
        remember(nonce);
        found = uses_.find(nonce);
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

void NonceStore::remember(const std::string& nonce)
{
    if (uses_.size() >= maxRemembered)
    {
        forgotten_ = std::max(forgotten_, issuedAt(order_.front()));
        uses_.erase(order_.front());
        order_.pop_front();
    }
    uses_.emplace(nonce, Uses());
    order_.push_back(nonce);
}

std::size_t NonceStore::remembered() const
{
    const MutexLock guard(mutex_);
    return uses_.size();
}

}  // namespace refhost
