#include "os/CompletionPortHandler.h"

#include "os/OS.h"

CompletionPortHandler::CompletionPortHandler(const char* name, const IOCompletionCommand& command,
                                             int minThreads, int maxThreads, int concurrency, int priority)
    : port_(OS()->createCompletionPort(name, command, minThreads, maxThreads, concurrency, priority))
{}

CompletionPortHandler::~CompletionPortHandler()
{
    if (port_)
        port_->shutDown();
}

bool CompletionPortHandler::attach(const Qz::Ptr<iFile>& file)
{
    return port_ && file && file->isOpen() && port_->attach(file);
}
