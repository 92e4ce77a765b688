#pragma once

#include "Qz/Export.h"
#include "Qz/NotifyMsg.h"
#include "Qz/Ptr.h"
#include "Qz/iObject.h"

#include <functional>
#include <utility>
#include <vector>

// Notifier: listeners by notification type, called one after the other on the thread that issues.
//
// Threads:    listeners come and go from any thread, also from inside a callback. The list is copied
//             under the notifier's own lock and the callbacks run outside of it, so a notifier adds no
//             lock to the order that its owner keeps. A listener that is removed while a message is on
//             its way may still get that message.
// Ownership:  registerInternal answers with a handle; its end (or reset) unregisters. The handle may
//             outlive the notifier.

// A callback that takes a message of type Arg.
template <class Result, class Arg>
class QZ_API iCallbackBase : public iObject
{
public:
    // Takes one message, on the thread that issues it.
    virtual Result call(Arg argument) = 0;
};

// Wraps a function object as a callback.
template <class Result, class Arg>
class QZ_API FunctionCallback : public iCallbackBase<Result, Arg>
{
public:
    // REQUIRES: function is not empty.
    explicit FunctionCallback(std::function<Result(Arg)> function) : function_(std::move(function)) {}
    Result call(Arg argument) override { return function_(std::move(argument)); }

private:
    std::function<Result(Arg)> function_;
};

// A record of the listener list: whom to call for which type.
class QZ_API NotifierRecord : public iObject
{
public:
    // A record for messages of that type.
    explicit NotifierRecord(int type) : type_(type) {}
    ~NotifierRecord() override;
    // The notification type that it waits for.
    [[nodiscard]] int getType() const { return type_; }

private:
    int type_;
};

// A record with the callback for messages of type Msg.
template <class Msg>
class QZ_API CallbackInvoker : public NotifierRecord
{
public:
    // A null callback hears nothing.
    CallbackInvoker(const Qz::Ptr<iCallbackBase<int, Msg>>& callback, int type)
        : NotifierRecord(type), callback_(callback)
    {}
    // Calls the callback on this thread.
    void invoke(const Msg& message) const
    {
        if (callback_)
            callback_->call(message);
    }

private:
    Qz::Ptr<iCallbackBase<int, Msg>> callback_;
};

// The list of listeners, whatever their messages are.
class QZ_API NotifierBase
{
public:
    // A notifier without listeners.
    NotifierBase();
    // Handles that outlive it go on to be harmless.
    virtual ~NotifierBase();
    NotifierBase(const NotifierBase&) = delete;
    NotifierBase& operator=(const NotifierBase&) = delete;

    // Lists record and answers with the handle that keeps it listed; a null record gives a null handle.
    [[nodiscard]] Qz::Ptr<iObject> registerInternal(const Qz::Ptr<NotifierRecord>& record);

protected:
    // The records of one type, in the order of registration.
    [[nodiscard]] std::vector<Qz::Ptr<NotifierRecord>> recordsOf(int type) const;

private:
    class List;
    class Handle;
    Qz::Ptr<List> list_;
};

// A notifier whose messages are of type Msg.
template <class Msg>
class QZ_API GenericNotifier : public NotifierBase
{
public:
    // Has callback called for each message of type, until the answered handle goes.
    [[nodiscard]] Qz::Ptr<iObject> addListener(const Qz::Ptr<iCallbackBase<int, Msg>>& callback, int type)
    {
        return registerInternal(Qz::Ptr<NotifierRecord>(new CallbackInvoker<Msg>(callback, type)));
    }

    // Calls every listener of type, on this thread; returns when the last one has returned. Records
    // that take another kind of message are passed over.
    virtual void issueNotification(const Msg& message, int type)
    {
        for (const auto& record : recordsOf(type))
            if (const auto* invoker = dynamic_cast<const CallbackInvoker<Msg>*>(record.get()))
                invoker->invoke(message);
    }
};

// A notifier of the messages that the whole system uses.
using Notifier = GenericNotifier<NotifyMsg>;
