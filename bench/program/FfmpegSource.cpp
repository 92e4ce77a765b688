#include "FrameSource.h"

extern "C" {
#include <libavformat/avio.h>
}

#include <stdexcept>

namespace {

class FfmpegSource : public FrameSource
{
public:
    explicit FfmpegSource(const std::string& path)
    {
        if (avio_open(&context_, ("file:" + path).c_str(), AVIO_FLAG_READ) < 0)
            throw std::runtime_error("avio_open");
    }
    ~FfmpegSource() override { avio_close(context_); }
    void read(unsigned char* buffer, std::size_t bytes, std::uint64_t position) override
    {
        if (position != at_ && avio_seek(context_, static_cast<std::int64_t>(position), SEEK_SET) < 0)
            throw std::runtime_error("avio_seek");
        if (avio_read(context_, buffer, static_cast<int>(bytes)) != static_cast<int>(bytes))
            throw std::runtime_error("avio_read");
        at_ = position + bytes;
    }

private:
    AVIOContext* context_ = nullptr;
    std::uint64_t at_ = 0;
};

}  // namespace

std::unique_ptr<FrameSource> makeFfmpegSource(const std::string& path)
{
    return std::make_unique<FfmpegSource>(path);
}
