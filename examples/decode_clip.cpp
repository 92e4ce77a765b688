// Decodes a clip with FFmpeg and prints a line for each frame: stream, bytes and MD5 of what a player shows
// or plays.
//   decode_clip PROJECT_SPACE COOKIE high|proxy

#include "Qz/Shutdown.h"
#include "Qz/Utf8.h"
#include "av/AvInput.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"

#include <array>
#include <cstdio>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/md5.h>
#include <libavutil/samplefmt.h>
}

namespace {

// FFmpeg's objects, freed its own way.
struct Free
{
    void operator()(AVFormatContext* format) const { avformat_close_input(&format); }
    void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using Format = std::unique_ptr<AVFormatContext, Free>;
using Codec = std::unique_ptr<AVCodecContext, Free>;

// REQUIRES: input outlives the answer, and is open. Null when it holds nothing that FFmpeg knows.
Format openFormat(const AvInput& input)
{
    AVFormatContext* format = avformat_alloc_context();
    if (!format)
        return {};
    format->pb = input.context();
    // Frees the format when it fails, and leaves the input's context alone.
    if (avformat_open_input(&format, input.name().c_str(), nullptr, nullptr) < 0)
        return {};
    Format opened(format);
    return avformat_find_stream_info(format, nullptr) < 0 ? Format() : std::move(opened);
}

Codec openCodec(const AVStream& stream)
{
    const AVCodec* const decoder = avcodec_find_decoder(stream.codecpar->codec_id);
    Codec codec(decoder ? avcodec_alloc_context3(decoder) : nullptr);
    if (!codec || avcodec_parameters_to_context(codec.get(), stream.codecpar) < 0)
        return {};
    return avcodec_open2(codec.get(), decoder, nullptr) < 0 ? Codec() : std::move(codec);
}

// The samples of one channel after the other where the decoder keeps them apart, else all interleaved.
std::vector<std::uint8_t> samplesOf(const AVFrame& frame)
{
    const auto layout = static_cast<AVSampleFormat>(frame.format);
    const int channels = frame.ch_layout.nb_channels;
    const int planes = av_sample_fmt_is_planar(layout) != 0 ? channels : 1;
    const int planeBytes =
        av_samples_get_buffer_size(nullptr, channels / planes, frame.nb_samples, layout, 1);
    std::vector<std::uint8_t> bytes;
    for (int plane = 0; plane < planes; ++plane)
        bytes.insert(bytes.end(), frame.extended_data[plane], frame.extended_data[plane] + planeBytes);
    return bytes;
}

// Plane after plane, without padding.
std::vector<std::uint8_t> pictureOf(const AVFrame& frame)
{
    const auto layout = static_cast<AVPixelFormat>(frame.format);
    std::vector<std::uint8_t> bytes(
        static_cast<std::size_t>(av_image_get_buffer_size(layout, frame.width, frame.height, 1)));
    av_image_copy_to_buffer(bytes.data(), static_cast<int>(bytes.size()), frame.data, frame.linesize, layout,
                            frame.width, frame.height, 1);
    return bytes;
}

void show(int stream, const AVFrame& frame)
{
    const std::vector<std::uint8_t> bytes = frame.nb_samples != 0 ? samplesOf(frame) : pictureOf(frame);
    std::array<std::uint8_t, 16> sum{};
    av_md5_sum(sum.data(), bytes.data(), bytes.size());
    std::printf("%d %zu ", stream, bytes.size());
    for (const unsigned byte : sum)
        std::printf("%02x", byte);
    std::printf("\n");
}

// A null packet takes out what the decoder still holds. 0, or FFmpeg's error.
int decode(int stream, AVCodecContext& codec, const AVPacket* packet, AVFrame& frame)
{
    int result = avcodec_send_packet(&codec, packet);
    while (result >= 0) {
        result = avcodec_receive_frame(&codec, &frame);
        if (result >= 0)
            show(stream, frame);
    }
    return result == AVERROR(EAGAIN) || result == AVERROR_EOF ? 0 : result;
}

int decodeAll(AVFormatContext& format)
{
    std::map<int, Codec> codecs;
    for (unsigned i = 0; i < format.nb_streams; ++i)
        if (Codec codec = openCodec(*format.streams[i]))
            codecs[static_cast<int>(i)] = std::move(codec);
    const std::unique_ptr<AVPacket, Free> packet(av_packet_alloc());
    const std::unique_ptr<AVFrame, Free> frame(av_frame_alloc());
    int result = packet && frame ? 0 : AVERROR(ENOMEM);
    while (result >= 0 && (result = av_read_frame(&format, packet.get())) >= 0) {
        const auto codec = codecs.find(packet->stream_index);
        if (codec != codecs.end())
            result = decode(codec->first, *codec->second, packet.get(), *frame);
        av_packet_unref(packet.get());
    }
    if (result != AVERROR_EOF)
        return result;
    for (const auto& [stream, codec] : codecs)
        if (const int drained = decode(stream, *codec, nullptr, *frame); drained < 0)
            return drained;
    return 0;
}

int decodeClip(const Cookie& clip, eProxyLevel level)
{
    AvInput input(clip, DecodeFormat(level));
    const Format format = input.isOpen() ? openFormat(input) : Format();
    if (!format) {
        std::fprintf(stderr, "%s\n",
                     input.error() ? input.error().text.c_str() : "no media that FFmpeg knows");
        return 1;
    }
    const int result = decodeAll(*format);
    if (result < 0) {
        std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
        av_strerror(result, text.data(), text.size());
        std::fprintf(stderr, "%s: %s\n", input.name().c_str(), text.data());
    }
    return result < 0 ? 1 : 0;
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    const std::string_view level = argumentCount == 4 ? arguments[3] : "";
    if (level != "high" && level != "proxy") {
        std::fprintf(stderr, "usage: decode_clip PROJECT_SPACE COOKIE high|proxy\n");
        return 2;
    }
    FsysInitialize();
    DiskManager::init(fromUTF8(arguments[1]), true);
    const Cookie clip(LightweightString<char>(arguments[2]), true);
    const int result = decodeClip(clip, level == "high" ? eHighRes : eProxy);
    Shutdown::run(Shutdown::eNormalExit);
    return result;
}
