#pragma once

#include "os/linux/LinuxAsyncContext.h"

// TransferList: transfers in order of arrival, linked through themselves; owns nothing, allocates nothing.
class TransferList
{
public:
    [[nodiscard]] bool empty() const { return first_ == nullptr; }

    void push(LinuxAsyncContext* transfer)
    {
        transfer->next = nullptr;
        *end_ = transfer;
        end_ = &transfer->next;
    }
    // The oldest one, or null.
    [[nodiscard]] LinuxAsyncContext* first() const { return first_; }
    // Takes the oldest one; null when there is none.
    LinuxAsyncContext* pop()
    {
        LinuxAsyncContext* transfer = first_;
        if (transfer)
            first_ = transfer->next;
        if (!first_)
            end_ = &first_;
        return transfer;
    }
    void append(TransferList& others)
    {
        while (LinuxAsyncContext* transfer = others.pop())
            push(transfer);
    }

    TransferList() = default;
    TransferList(const TransferList&) = delete;
    TransferList& operator=(const TransferList&) = delete;

private:
    LinuxAsyncContext* first_ = nullptr;
    LinuxAsyncContext** end_ = &first_;
};
