#include "refhost/net/tls/TlsCarrier.h"

#include <openssl/bio.h>

#include <algorithm>
#include <climits>
#include <string_view>

namespace refhost
{

using Status = ByteStream::Status;

// What OpenSSL calls.
struct TlsCarrier::Bio
{
    static TlsCarrier& of(BIO* bio)
    {
        return *static_cast<TlsCarrier*>(BIO_get_data(bio));
    }

    static const BIO_METHOD* methods()
    {
        static BIO_METHOD* const made = []
        {
            BIO_METHOD* const methods = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_FILTER, "TCP stream");
            BIO_meth_set_read(methods, &Bio::read);
            BIO_meth_set_write(methods, &Bio::write);
            BIO_meth_set_ctrl(methods, &Bio::control);
            return methods;
        }();
        return made;
    }

    static int read(BIO* bio, char* bytes, int size)
    {
        TlsCarrier& carrier = of(bio);
        BIO_clear_retry_flags(bio);
        if (carrier.kernel_ != nullptr && BIO_get_ktls_recv(carrier.kernel_))
        {
            const int count = BIO_read(carrier.kernel_, bytes, size);
            BIO_copy_next_retry(bio);
            return count;
        }
        const ByteStream::Result result =
            carrier.full() ? ByteStream::Result{Status::blocked}
                           : carrier.tcp_.receive(bytes, static_cast<std::size_t>(std::max(size, 0)));
        if (result.status == Status::blocked)
        {
            BIO_set_retry_read(bio);
            return -1;
        }
        carrier.noteFirst({bytes, result.count});
        carrier.ended_ = result.status == Status::ended;
        return result.status == Status::failed ? -1 : static_cast<int>(result.count);
    }

    static int write(BIO* bio, const char* bytes, int size)
    {
        TlsCarrier& carrier = of(bio);
        BIO_clear_retry_flags(bio);
        if (carrier.kernelSends())
        {
            const int count = BIO_write(carrier.kernel_, bytes, size);
            BIO_copy_next_retry(bio);
            return count;
        }
        carrier.unsent_.append(bytes, static_cast<std::size_t>(std::max(size, 0)));
        return size;
    }

    static long control(BIO* bio, int command, long number, void* pointer)
    {
        TlsCarrier& carrier = of(bio);
        switch (command)
        {
            case BIO_CTRL_EOF:
                return carrier.ended_ ? 1 : 0;
            case BIO_CTRL_FLUSH:
                return flush(bio);
            default:
                // The others are about kernel TLS.
                return carrier.kernel_ == nullptr ? 0 : BIO_ctrl(carrier.kernel_, command, number, pointer);
        }
    }

    /// The kernel may take over only once everything that OpenSSL encrypted is sent. Otherwise what is gathered
    /// is sent when OpenSSL is through, in one system call.
    static long flush(BIO* bio)
    {
        TlsCarrier& carrier = of(bio);
        if (carrier.kernel_ == nullptr || (carrier.flush() && carrier.empty()))
        {
            return 1;
        }
        BIO_set_retry_write(bio);
        return -1;
    }
};

TlsCarrier::TlsCarrier(TcpStream& tcp) : tcp_(tcp) {}

bio_st* TlsCarrier::makeBio(int kernelSocket)
{
    BIO* const bio = BIO_new(Bio::methods());
    if (bio == nullptr)
    {
        return nullptr;
    }
    BIO_set_data(bio, this);
    BIO_set_init(bio, 1);
    if (kernelSocket >= 0)
    {
        kernel_ = BIO_new_socket(kernelSocket, BIO_NOCLOSE);
        if (kernel_ != nullptr)
        {
            BIO_push(bio, kernel_);
        }
    }
    return bio;
}

void TlsCarrier::noteFirst(std::string_view received)
{
    if (firstSize_ != first_.size())
    {
        firstSize_ += received.copy(first_.data() + firstSize_, first_.size() - firstSize_);
    }
}

std::string_view TlsCarrier::firstReceived() const
{
    return {first_.data(), firstSize_};
}

void TlsCarrier::reserve(std::size_t bytes)
{
    unsent_.reserve(unsent_.size() + bytes);
}

bool TlsCarrier::flush(bool more)
{
    while (!empty())
    {
        const std::string_view part = std::string_view(unsent_).substr(sent_);
        const ByteStream::Result result = tcp_.send(&part, 1, more);
        if (result.status != Status::done)
        {
            unsent_.erase(0, sent_);
            sent_ = 0;
            return result.status == Status::blocked;
        }
        sent_ += result.count;
    }
    // Gives the memory back: most connections are idle most of the time.
    std::string().swap(unsent_);
    sent_ = 0;
    return true;
}

bool TlsCarrier::empty() const
{
    return sent_ == unsent_.size();
}

bool TlsCarrier::full() const
{
    return unsent_.size() - sent_ > maxUnsent;
}

bool TlsCarrier::kernelSends() const
{
    return kernel_ != nullptr && BIO_get_ktls_send(kernel_);
}

}  // namespace refhost
