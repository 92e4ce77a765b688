#pragma once

#include "Qz/Notifier.h"
#include "Qz/QzDC.h"
#include "Qz/QzLokiSingleton.h"

// What a library other than the caller's makes of the shared templates; see SharedLibrariesTest.cpp.

struct QZ_API NeighbourPayload : iObject
{
    explicit NeighbourPayload(int given) : number(given) {}
    int number;
};

struct QZ_API NeighbourTag
{
};
using NeighbourCommand = QzDC::SmplCmd<int, NeighbourTag, QzDC::ThreadSafetyTraits::ThreadSafe>;

struct QZ_API NeighbourShared
{
    int value = 0;
};

QZ_API Qz::Ptr<iObject> neighbourPayload(int number);
QZ_API Qz::Ptr<NotifierRecord> neighbourRecord(int type, int& calls);
QZ_API int neighbourExecute(QzDC::Receiver<NeighbourCommand>& receiver, int parameter);
QZ_API NeighbourShared& neighbourInstance();
