// Any bytes as a media file that is played in a loop.
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "refhost/base/Descriptor.h"
#include "refhost/capture/FilePlayer.h"
#include "refhost/rtp/payload/Packetizer.h"

namespace
{

using namespace refhost;

constexpr int payloadSize = 300;
constexpr int maxItems = 500;
constexpr int maxAccesses = 5000;  // then the disk "takes too long"

void fail()
{
    std::abort();
}

/// Plays the file as its stream does, over its end, and packetises what comes.
void play(const std::string& path)
{
    int accesses = 0;
    FilePlayer player(path, {}, [&accesses] { return ++accesses > maxAccesses; });
    MediaFile::Problem problem;
    if (!player.open(problem))
    {
        return;
    }
    std::array<std::unique_ptr<Packetizer>, 2> packetizers;
    std::array<Duration, 2> last{Duration::min(), Duration::min()};
    std::string why;
    for (int i = 0; i < maxItems; ++i)
    {
        const std::optional<Duration> due = player.due(Duration::zero(), why);
        if (!due)
        {
            if (why.empty())
            {
                fail();
            }
            return;
        }
        FilePlayer::Item item = player.take();
        const std::size_t kind = item.video ? 0 : 1;
        if (*due < std::exchange(last.at(kind), *due) || player.heldBytes() > FilePlayer::maxBytes * 4)
        {
            fail();
        }
        if (!packetizers.at(kind))
        {
            packetizers.at(kind) = Packetizer::make(item.format->codec, payloadSize);
        }
        EncodedUnit unit;
        unit.format = item.format;
        unit.bytes = std::move(item.bytes);
        unit.keyFrame = item.key;
        std::vector<std::shared_ptr<AccessUnit>> packed;
        packetizers.at(kind)->pack(unit, 0, packed);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Descriptor file(::memfd_create("media", MFD_CLOEXEC));
    if (file && ::write(file.get(), data, size) == static_cast<ssize_t>(size))
    {
        play("/proc/self/fd/" + std::to_string(file.get()));
    }
    return 0;
}
