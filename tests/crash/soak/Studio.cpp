#include "Studio.h"

#include "Qz/Utf8.h"

#include <cstdio>

void Catalog::add(ClipPtr clip)
{
    const std::lock_guard<std::mutex> hold(guard_);
    clips_.push_back(std::move(clip));
}

ClipPtr Catalog::pick(std::mt19937_64& random)
{
    const std::lock_guard<std::mutex> hold(guard_);
    return clips_.empty() ? nullptr : clips_[random() % clips_.size()];
}

std::vector<ClipPtr> Catalog::all()
{
    const std::lock_guard<std::mutex> hold(guard_);
    return clips_;
}

ClipPtr Catalog::takeOldest(std::size_t keep)
{
    const std::lock_guard<std::mutex> hold(guard_);
    if (clips_.size() > keep)
        for (auto clip = clips_.begin(); clip != clips_.end(); ++clip)
            if (clip->use_count() == 1) {
                ClipPtr taken = *clip;
                clips_.erase(clip);
                return taken;
            }
    return nullptr;
}

bool Rests::mayGoOn()
{
    std::unique_lock<std::mutex> hold(guard_);
    if (wanted_) {
        ++resting_;
        changed_.notify_all();
        changed_.wait(hold, [this] { return !wanted_; });
        --resting_;
    }
    return !stopped_;
}

void Rests::begin()
{
    std::unique_lock<std::mutex> hold(guard_);
    changed_.wait(hold, [this] { return resting_ == 0; });
    wanted_ = true;
    changed_.wait(hold, [this] { return resting_ == workers_; });
}

void Rests::end()
{
    const std::lock_guard<std::mutex> hold(guard_);
    wanted_ = false;
    changed_.notify_all();
}

void Rests::stop()
{
    const std::lock_guard<std::mutex> hold(guard_);
    stopped_ = true;
    wanted_ = false;
    changed_.notify_all();
}

void Report::wrong(const std::string& text)
{
    constexpr unsigned printedMax = 50;
    if (++wrongs_ <= printedMax)
        std::fprintf(stderr, "WRONG: %s\n", text.c_str());
}

void Report::noteLatency(double ms)
{
    double before = worstMs_;
    while (ms > before && !worstMs_.compare_exchange_weak(before, ms)) {
    }
}

LightweightString<wchar_t> locationAt(const std::string& place) { return fromUTF8(place + "/location/"); }
