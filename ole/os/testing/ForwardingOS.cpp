#include "os/testing/ForwardingOS.h"

#include <utility>

namespace {

// Shows its target the handles that the target has made itself.
class ForwardingCompletionPort : public iCompletionPort
{
public:
    explicit ForwardingCompletionPort(Qz::Ptr<iCompletionPort> target) : target_(std::move(target)) {}
    bool attach(const Qz::Ptr<iFile>& file) override
    {
        return target_->attach(ForwardingFile::innermost(file));
    }
    void shutDown() override { target_->shutDown(); }

private:
    Qz::Ptr<iCompletionPort> target_;
};

}  // namespace

Qz::Ptr<iCompletionPort> ForwardingOS::createCompletionPort(const char* name,
                                                            const IOCompletionCommand& command,
                                                            int minThreads, int maxThreads, int concurrency,
                                                            int priority)
{
    Qz::Ptr<iCompletionPort> port =
        target_.createCompletionPort(name, command, minThreads, maxThreads, concurrency, priority);
    return port ? Qz::Ptr<iCompletionPort>(new ForwardingCompletionPort(std::move(port))) : port;
}
