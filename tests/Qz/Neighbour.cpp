#include "Neighbour.h"

Qz::Ptr<iObject> neighbourPayload(int number) { return new NeighbourPayload(number); }

Qz::Ptr<NotifierRecord> neighbourRecord(int type, int& calls)
{
    const Qz::Ptr<iCallbackBase<int, NotifyMsg>> callback(
        new FunctionCallback<int, NotifyMsg>([&calls](const NotifyMsg&) { return ++calls; }));
    return new CallbackInvoker<NotifyMsg>(callback, type);
}

int neighbourExecute(QzDC::Receiver<NeighbourCommand>& receiver, int parameter)
{
    return NeighbourCommand(&receiver).execute(parameter);
}

NeighbourShared& neighbourInstance() { return Qz::SingletonHolder<NeighbourShared>::instance(); }
