#include "os/testing/FakePorts.h"

#include "Qz/Utf8.h"
#include "os/LastError.h"
#include "os/testing/FakeCore.h"
#include "os/testing/FakeFile.h"
#include "os/testing/ForwardingFile.h"
#include "os/testing/PortState.h"

#include <cerrno>
#include <utility>

namespace {

using Guard = std::lock_guard<std::mutex>;
using fake::Op;

class FakeCompletionPort : public iCompletionPort
{
public:
    FakeCompletionPort(std::shared_ptr<FakeCore> core, std::shared_ptr<fake::PortState> state)
        : core_(std::move(core)), state_(std::move(state))
    {
        ++core_->live.ports;
    }
    ~FakeCompletionPort() override
    {
        state_->shutDown();
        --core_->live.ports;
    }

    bool attach(const Qz::Ptr<iFile>& file) override
    {
        const Qz::Ptr<FakeFile> handle = Qz::dynamicCast<FakeFile>(ForwardingFile::innermost(file));
        fake::Call call;
        call.op = Op::attach;
        call.path = handle ? handle->state().path : LightweightString<wchar_t>();
        call.handle = handle ? handle->state().handle : 0;
        const auto fault = core_->fault(Op::attach, call.path);
        const bool attached =
            !fault && handle && !core_->transfers.refuses(*state_) && handle->attachTo(state_);
        call.code = fault ? fault->code : attached ? 0 : errorFromErrno(EINVAL);
        core_->log.add(call);
        if (!attached)
            setLastError(call.code);
        return attached;
    }

    void shutDown() override { state_->shutDown(); }

private:
    std::shared_ptr<FakeCore> core_;
    std::shared_ptr<fake::PortState> state_;
};

}  // namespace

Qz::Ptr<iCompletionPort> FakePorts::create(const std::shared_ptr<FakeCore>& core, const char* name,
                                           const IOCompletionCommand& command, int minThreads, int maxThreads,
                                           int concurrency, int priority)
{
    fake::Call call;
    call.op = Op::createPort;
    call.path = fromUTF8(name ? name : "");
    if (const auto fault = core->fault(Op::createPort, call.path)) {
        call.code = fault->code;
        core->log.add(call);
        setLastError(call.code);
        return {};
    }
    auto record = std::make_shared<fake::SharedPortRecord>();
    record->record = {name ? name : "", minThreads, maxThreads, concurrency, priority, true, 0};
    auto state = std::make_shared<fake::PortState>(core, record, command);
    state->begin();
    {
        const Guard guard(mutex_);
        ports_.push_back(state);
        records_.push_back(record);
    }
    core->log.add(call);
    return Qz::Ptr<iCompletionPort>(new FakeCompletionPort(core, state));
}

std::vector<fake::PortRecord> FakePorts::records() const
{
    const Guard guard(mutex_);
    std::vector<fake::PortRecord> result;
    for (const auto& shared : records_) {
        const Guard recordGuard(shared->mutex);
        result.push_back(shared->record);
    }
    return result;
}

void FakePorts::abandon()
{
    std::vector<std::shared_ptr<fake::PortState>> left;
    {
        const Guard guard(mutex_);
        for (const auto& port : ports_)
            if (auto state = port.lock())
                left.push_back(state);
        ports_.clear();
    }
    for (const auto& state : left)
        state->stop();
}
