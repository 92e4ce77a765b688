#include "os/linux/ThreadName.h"

#include <pthread.h>
#include <signal.h>
#include <string>

void nameThisThread(const char* name)
{
    constexpr std::size_t bytesMax = 15;
    if (name)
        pthread_setname_np(pthread_self(), std::string(name).substr(0, bytesMax).c_str());
}

void prepareHelperThread(const char* name)
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    nameThisThread(name);
}
