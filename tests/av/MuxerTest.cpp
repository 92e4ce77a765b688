// Muxers and demuxers of libavformat on the real platform: through the library as to a file of its own.

#include "av/AvInput.h"
#include "av/AvOutput.h"
#include "common/TemporaryFolder.h"
#include "media/RecordingHelpers.h"

#include <memory>
#include <thread>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
}

namespace {

constexpr int channels = 2;
constexpr int packetSamples = 9600;
constexpr int packets = 100;  // together several blocks of a recording
constexpr std::size_t packetBytes = std::size_t{packetSamples} * channels * 2;

struct FreePacket
{
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using Packet = std::unique_ptr<AVPacket, FreePacket>;

// The sound of one packet, the same each time.
Packet soundOf(int number)
{
    Packet packet(av_packet_alloc());
    const std::string bytes = noise(packetBytes, static_cast<unsigned>(number));
    EXPECT_EQ(0, av_new_packet(packet.get(), static_cast<int>(bytes.size())));
    std::memcpy(packet->data, bytes.data(), bytes.size());
    packet->pts = packet->dts = std::int64_t{number} * packetSamples;
    packet->duration = packetSamples;
    return packet;
}

// A file of sound by a muxer, packet after packet.
class Muxing
{
public:
    Muxing(const std::string& muxer, AVIOContext* context, AVCodecID codec = AV_CODEC_ID_PCM_S16LE)
    {
        avformat_alloc_output_context2(&format_, nullptr, muxer.c_str(), nullptr);
        format_->pb = context;
        format_->flags |= AVFMT_FLAG_BITEXACT;
        AVStream* const stream = avformat_new_stream(format_, nullptr);
        AVCodecParameters& sound = *stream->codecpar;
        sound.codec_type = AVMEDIA_TYPE_AUDIO;
        sound.codec_id = codec;
        sound.format = AV_SAMPLE_FMT_S16;
        sound.sample_rate = 48000;
        av_channel_layout_default(&sound.ch_layout, channels);
        sound.bits_per_coded_sample = 16;
        sound.block_align = channels * 2;
        sound.bit_rate = std::int64_t{48000} * channels * 16;
        stream->time_base = {1, 48000};
    }
    ~Muxing() { avformat_free_context(format_); }
    Muxing(const Muxing&) = delete;
    Muxing& operator=(const Muxing&) = delete;

    int begin() { return avformat_write_header(format_, nullptr); }
    int add(int number)
    {
        const Packet packet = soundOf(number);
        av_packet_rescale_ts(packet.get(), {1, 48000}, format_->streams[0]->time_base);
        return av_write_frame(format_, packet.get());
    }
    int end() { return av_write_trailer(format_); }
    int all()
    {
        int result = begin();
        for (int number = 0; result >= 0 && number < packets; ++number)
            result = add(number);
        return result < 0 ? result : end();
    }

private:
    AVFormatContext* format_ = nullptr;
};

class Muxers : public testing::TestWithParam<const char*>
{
protected:
    Muxers()
    {
        av_log_set_level(AV_LOG_QUIET);
        FsysInitialize();
    }
    ~Muxers() override { FsysUninitialize(Shutdown::eNormalExit); }

    static AVCodecID codec()
    {
        const std::string muxer = GetParam();
        return muxer == "aiff" ? AV_CODEC_ID_PCM_S16BE : AV_CODEC_ID_PCM_S16LE;
    }
    std::string ownFile(const std::string& muxer) const
    {
        const std::string path = folder / "own";
        AVIOContext* context = nullptr;
        EXPECT_LE(0, avio_open(&context, path.c_str(), AVIO_FLAG_WRITE));
        EXPECT_LE(0, Muxing(muxer, context, codec()).all());
        avio_closep(&context);
        return contentsOf(path);
    }

    TemporaryFolder folder;
};

// Every packet of the file; the last answer of libavformat.
int demux(const AvInput& input, std::string& sound)
{
    AVFormatContext* format = avformat_alloc_context();
    format->pb = input.context();
    int result = avformat_open_input(&format, input.name().c_str(), nullptr, nullptr);
    const Packet packet(av_packet_alloc());
    while (result >= 0 && (result = av_read_frame(format, packet.get())) >= 0) {
        sound.append(reinterpret_cast<const char*>(packet->data), static_cast<std::size_t>(packet->size));
        av_packet_unref(packet.get());
    }
    avformat_close_input(&format);
    return result;
}

std::string soundOfAll()
{
    std::string sound;
    for (int number = 0; number < packets; ++number)
        sound += noise(packetBytes, static_cast<unsigned>(number));
    return sound;
}

}  // namespace

TEST_P(Muxers, WriteTheSameFileAsByThemselves)
{
    AvOutput output(wide(folder / "shot"));
    ASSERT_TRUE(output.isOpen()) << output.error().text;
    EXPECT_LE(0, Muxing(GetParam(), output.context(), codec()).all());
    const MediaRecording recorded = output.finish();
    EXPECT_TRUE(recorded.complete) << recorded.error.text;
    const std::string own = ownFile(GetParam());
    EXPECT_LT(packets * packetBytes, own.size());
    EXPECT_TRUE(contentsOf(folder / "shot") == own);
}

TEST_P(Muxers, GiveTheSoundBack)
{
    const std::string all = ownFile(GetParam());
    const AvInput input(wide(folder / "own"));
    std::string sound;
    EXPECT_EQ(AVERROR_EOF, demux(input, sound));
    EXPECT_FALSE(input.error()) << input.error().text;
    EXPECT_TRUE(sound == soundOfAll()) << sound.size() << " of " << all.size();
}

INSTANTIATE_TEST_SUITE_P(Formats, Muxers,
                         testing::Values("mov", "wav", "w64", "matroska", "avi", "aiff", "nut"),
                         [](const auto& format) { return std::string(format.param); });

class GrowingSound : public Muxers
{
};

TEST_P(GrowingSound, IsReadWhileItIsRecorded)
{
    AvOutput output(wide(folder / "shot"));
    Muxing muxing(GetParam(), output.context());
    ASSERT_LE(0, muxing.begin());
    for (int number = 0; number < packets / 2; ++number)
        ASSERT_LE(0, muxing.add(number));
    avio_flush(output.context());
    AvInputOptions options;
    options.growthWaitMs = 60'000;
    const AvInput input(output.writer().partialPath(), options);
    std::string sound;
    int result = 0;
    std::thread player([&] { result = demux(input, sound); });
    for (int number = packets / 2; number < packets; ++number)
        EXPECT_LE(0, muxing.add(number));
    EXPECT_LE(0, muxing.end());
    EXPECT_TRUE(output.finish().complete);
    player.join();
    EXPECT_EQ(AVERROR_EOF, result);
    EXPECT_FALSE(input.error()) << input.error().text;
    EXPECT_TRUE(sound == soundOfAll()) << sound.size();
}

INSTANTIATE_TEST_SUITE_P(Formats, GrowingSound, testing::Values("nut", "wav", "matroska"),
                         [](const auto& format) { return std::string(format.param); });
