// Records pictures as ProRes in a MOV, encoded and written with FFmpeg: raw pictures (yuv422p10le, 25 a
// second) from standard input become a clip.
//   encode_clip PROJECT_SPACE LOCATION_FOLDER WIDTH HEIGHT < PICTURES

#include "Qz/Shutdown.h"
#include "Qz/Utf8.h"
#include "av/AvOutput.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
}

namespace {

constexpr AVPixelFormat layout = AV_PIX_FMT_YUV422P10LE;
constexpr AVRational frameTime{1, 25};

// FFmpeg's objects, freed its own way.
struct Free
{
    void operator()(AVFormatContext* format) const { avformat_free_context(format); }
    void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};

// The encoder, and the movie that its packets go to. Each step gives 0 or FFmpeg's error.
struct Encoding
{
    int open(AVIOContext* context, int width, int height);
    // A null picture takes out what the encoder still holds.
    int encode(const AVFrame* picture);
    int close() { return av_write_trailer(format.get()); }

    std::unique_ptr<AVFormatContext, Free> format;
    std::unique_ptr<AVCodecContext, Free> codec;
    std::unique_ptr<AVPacket, Free> packet{av_packet_alloc()};
};

int Encoding::open(AVIOContext* context, int width, int height)
{
    const AVCodec* const encoder = avcodec_find_encoder_by_name("prores_ks");
    AVFormatContext* movie = nullptr;
    avformat_alloc_output_context2(&movie, nullptr, "mov", nullptr);
    format.reset(movie);
    codec.reset(encoder ? avcodec_alloc_context3(encoder) : nullptr);
    if (!format || !codec || !packet)
        return AVERROR_ENCODER_NOT_FOUND;
    format->pb = context;
    format->flags |= AVFMT_FLAG_BITEXACT;
    codec->width = width;
    codec->height = height;
    codec->pix_fmt = layout;
    codec->field_order = AV_FIELD_PROGRESSIVE;
    codec->time_base = frameTime;
    codec->framerate = av_inv_q(frameTime);
    codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
    av_opt_set(codec->priv_data, "profile", "hq", 0);
    AVStream* const stream = avformat_new_stream(movie, nullptr);
    int result = stream ? avcodec_open2(codec.get(), encoder, nullptr) : AVERROR(ENOMEM);
    if (result >= 0)
        result = avcodec_parameters_from_context(stream->codecpar, codec.get());
    if (result < 0)
        return result;
    stream->time_base = frameTime;
    av_dict_set(&stream->metadata, "encoder", "Lavc prores_ks", 0);
    stream->avg_frame_rate = codec->framerate;
    return avformat_write_header(movie, nullptr);
}

int Encoding::encode(const AVFrame* picture)
{
    int result = avcodec_send_frame(codec.get(), picture);
    while (result >= 0 && (result = avcodec_receive_packet(codec.get(), packet.get())) >= 0) {
        av_packet_rescale_ts(packet.get(), frameTime, format->streams[0]->time_base);
        result = av_interleaved_write_frame(format.get(), packet.get());
    }
    return result == AVERROR(EAGAIN) || result == AVERROR_EOF ? 0 : result;
}

int encodeAll(AVIOContext* context, int width, int height)
{
    Encoding encoding;
    int result = encoding.open(context, width, height);
    const std::unique_ptr<AVFrame, Free> picture(av_frame_alloc());
    if (result < 0 || !picture)
        return result < 0 ? result : AVERROR(ENOMEM);
    picture->width = width;
    picture->height = height;
    picture->format = layout;
    std::vector<std::uint8_t> bytes(
        static_cast<std::size_t>(av_image_get_buffer_size(layout, width, height, 1)));
    av_image_fill_arrays(picture->data, picture->linesize, bytes.data(), layout, width, height, 1);
    for (picture->pts = 0; result >= 0 && std::fread(bytes.data(), bytes.size(), 1, stdin) == 1;
         ++picture->pts)
        result = encoding.encode(picture.get());
    if (result >= 0)
        result = encoding.encode(nullptr);
    return result < 0 ? result : encoding.close();
}

bool record(const Cookie& clip, const Qz::Ptr<MediaDrive>& drive, int width, int height)
{
    AvOutput output(clip, drive->getFsysLocation(clip, L"mov"));
    const int result = output.isOpen() ? encodeAll(output.context(), width, height) : 0;
    if (result < 0 && !output.error()) {
        // FFmpeg refused, not the disk: what there is of the file is no movie.
        std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
        av_strerror(result, text.data(), text.size());
        std::fprintf(stderr, "%s\n", text.data());
        output.abandon();
        return false;
    }
    const MediaRecording recorded = output.finish();
    if (recorded.complete)
        std::printf("%s\n", toUTF8(recorded.path).c_str());
    else
        std::fprintf(stderr, "%s\n", recorded.error.text.c_str());
    return recorded.complete;
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    const int width = argumentCount == 5 ? std::atoi(arguments[3]) : 0;
    const int height = argumentCount == 5 ? std::atoi(arguments[4]) : 0;
    if (width <= 0 || height <= 0) {
        std::fprintf(stderr, "usage: encode_clip PROJECT_SPACE LOCATION_FOLDER WIDTH HEIGHT < PICTURES\n");
        return 2;
    }
    FsysInitialize();
    DiskManager::init(fromUTF8(arguments[1]), true);
    const LightweightString<wchar_t> folder = fromUTF8(arguments[2]);
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(folder.endsWith(L"/") ? folder : folder + L"/");
    bool good = false;
    if (drive && drive->prepareForMedia())
        good = record(Cookie::makeNew(), drive, width, height);
    else
        std::fprintf(stderr, "%s is no media location that can be written\n", arguments[2]);
    Shutdown::run(Shutdown::eNormalExit);
    return good ? 0 : 1;
}
