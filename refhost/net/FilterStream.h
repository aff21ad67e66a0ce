#pragma once
// Tested by tests/refhost/net/ByteStreamContract_test.cpp.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "refhost/base/Mutex.h"
#include "refhost/net/ByteStream.h"
#include "refhost/net/CarrierWatch.h"
#include "refhost/net/StreamHandler.h"

namespace refhost
{

/// A stream over another one, its carrier, whose bytes differ from the carrier's: the common part of tunnels
/// and WebSocket.
///
/// Holds bytes that are to be sent (`unsent_`) and bytes that were decoded and not received yet (`decoded_`).
/// Memory for both is given back with the last byte. A derived class fills `decoded_` in pump(), and bounds
/// both.
///
/// Threads: as ByteStream, with one lock of its own, never held while the handler is called.
class FilterStream : public ByteStream
{
public:
    void attach(EventLoop& loop, Handler handler) final;
    void detach() final;
    void watchReceive(bool on) final;
    void watchSend(bool on) final;
    Result receive(char* bytes, std::size_t size) final;
    void endSending() override;
    const SocketAddress& peer() const final;
    const SocketAddress& local() const final;
    void setSendBuffer(std::size_t bytes) final;
    std::optional<std::chrono::milliseconds> silence() const final;
    bool encrypted() const final;
    std::string certificateName() const final;

protected:
    /// Bytes read from a carrier at once.
    static constexpr std::size_t readSize = 4096;

    /// \param carrier   detached; owned
    /// \param greeting  sent before anything else
    FilterStream(std::shared_ptr<ByteStream> carrier, std::string greeting);

    // What a derived class does. All are called with the lock held; all but send() and the destructor on the
    // loop's thread.

    /// Reads once from what carries the peer's bytes, and appends to `decoded_`.
    /// \returns `done` when it may be called again at once; the others as receive(). `ended` and `failed` stay.
    virtual Status pump() OV_REQUIRES(mutex_) = 0;
    /// The carrier has something to receive.
    /// \returns whether receive() would find it
    virtual bool onCarrierReceivable() OV_REQUIRES(mutex_) = 0;
    /// Whether the carrier is watched for something to receive.
    virtual bool watchesCarrier() const OV_REQUIRES(mutex_) = 0;
    /// Whether receive() has something to do although no carrier reports it.
    virtual bool holdsMore() const OV_REQUIRES(mutex_);
    /// Called once in each iteration of the loop in which receive() has something to do and no carrier reports
    /// it, before that is reported.
    virtual void onIteration() OV_REQUIRES(mutex_);
    /// Updates what other carriers are watched for.
    virtual void updateOthers() OV_REQUIRES(mutex_);
    virtual void attachOthers(EventLoop& loop) OV_REQUIRES(mutex_);
    virtual void detachOthers() OV_REQUIRES(mutex_);

    /// Sends what is unsent as far as the carrier accepts it.
    void flush(bool more = false) OV_REQUIRES(mutex_);
    /// Applies what follows from the state of both directions.
    void update() OV_REQUIRES(mutex_);
    /// Calls the handler for an event of another carrier.
    void report(std::uint32_t ready);
    /// detach() of a derived class's close().
    /// \returns false the second time
    bool beginClose();
    ByteStream& carrier() const;

    mutable Mutex mutex_;
    std::string unsent_ OV_GUARDED_BY(mutex_);
    std::string decoded_ OV_GUARDED_BY(mutex_);
    StreamHandler handler_ OV_GUARDED_BY(mutex_);
    bool watchesReceive_ OV_GUARDED_BY(mutex_) = true;
    bool ended_ OV_GUARDED_BY(mutex_) = false;   // the peer's last byte is in decoded_
    bool failed_ OV_GUARDED_BY(mutex_) = false;  // nothing can be sent or received any more
    bool closed_ OV_GUARDED_BY(mutex_) = false;

private:
    void onCarrier(std::uint32_t ready);
    void onHeld(const Handler& handler);
    void reportHeld() OV_REQUIRES(mutex_);
    bool held() const OV_REQUIRES(mutex_);

    const std::shared_ptr<ByteStream> carrier_;
    std::size_t received_ OV_GUARDED_BY(mutex_) = 0;  // of decoded_
    CarrierWatch carrierWatch_ OV_GUARDED_BY(mutex_);
    bool watchesSend_ OV_GUARDED_BY(mutex_) = false;
    bool ending_ OV_GUARDED_BY(mutex_) = false;  // endSending() was called
};

}  // namespace refhost
