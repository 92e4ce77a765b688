#include "media/WriteQueue.h"

#include "os/OS.h"

#include <algorithm>
#include <optional>

namespace {

bool hasFailed(const Qz::Ptr<WriteBlock>& block) { return block->state() == WriteBlock::State::failed; }

bool isUnderWay(const Qz::Ptr<WriteBlock>& block) { return block->state() == WriteBlock::State::underWay; }

}  // namespace

WriteQueue::WriteQueue(std::size_t blocksMax, unsigned stallLimitMs)
    : stallLimitMs_(stallLimitMs), ended_(OS()->getThreadServices()->createEvent(0, 0, nullptr))
{
    blocks_.reserve(blocksMax);
}

bool WriteQueue::collect()
{
    while (!blocks_.empty() && blocks_.front()->state() == WriteBlock::State::written) {
        const Qz::Ptr<WriteBlock> block = blocks_.front();
        blocks_.erase(blocks_.begin());
        writtenEnd_ = block->end();
        wholeEnd_ = block->wholeEnd(writtenEnd_).value_or(wholeEnd_);
    }
    return std::any_of(blocks_.begin(), blocks_.end(), hasFailed);
}

template <class Ready>
WriteQueue::Wait WriteQueue::waitUntil(Ready ready)
{
    while (!ready()) {
        if (stallLimitMs_ == 0)
            ended_->wait();
        else if (!ended_->wait(stallLimitMs_))
            return ready() ? Wait::done : Wait::stalled;
    }
    return Wait::done;
}

WriteQueue::Wait WriteQueue::waitUntilAtMost(std::size_t blocks, bool* waited)
{
    bool failed = false;
    const auto ready = [&] {
        failed = collect();
        return failed || blocks_.size() <= blocks;
    };
    if (waited)
        *waited = *waited || !ready();
    const Wait result = waitUntil(ready);
    return failed ? Wait::failed : result;
}

WriteQueue::Wait WriteQueue::waitUntilAllEnded()
{
    const Wait result =
        waitUntil([this] { return std::none_of(blocks_.begin(), blocks_.end(), isUnderWay); });
    collect();
    return result;
}

unsigned WriteQueue::failureCode() const
{
    const auto failed = std::find_if(blocks_.begin(), blocks_.end(), hasFailed);
    return failed == blocks_.end() ? 0 : (*failed)->code();
}

bool WriteQueue::hasWrittenBehind() const
{
    return std::any_of(blocks_.begin(), blocks_.end(), [](const Qz::Ptr<WriteBlock>& block) {
        return block->state() == WriteBlock::State::written;
    });
}

std::uint64_t WriteQueue::wholeEnd(std::uint64_t limit) const
{
    for (auto block = blocks_.rbegin(); block != blocks_.rend(); ++block)
        if (const std::optional<std::uint64_t> end = (*block)->wholeEnd(limit))
            return *end;
    return wholeEnd_;
}
