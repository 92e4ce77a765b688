#include "fsys/CompletionCall.h"

#include "support/Log.h"

void callCompletion(FsysCompletionFunction fn, Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data,
                    RequestStatus status) noexcept
{
    try {
        fn(context, data, status);
    } catch (...) {
        Log("fsys: a completion function has thrown an exception\n");
    }
}
