#include "Engine.h"

#include "Qz/Shutdown.h"
#include "Qz/Utf8.h"
#include "os/Codes.h"
#include "os/OS.h"

#include <stdexcept>

class Engine::BufferedFiles : public ForwardingFileManager
{
public:
    using ForwardingFileManager::ForwardingFileManager;

    Qz::Ptr<iFile> open(const Path& path, unsigned access, unsigned creation, unsigned share,
                        unsigned mode) override
    {
        return target().open(path, access, creation, share, mode & ~os::modeUnbuffered);
    }
};

Engine::Engine(const Work& work)
{
    if (work.mode != Mode::unbuffered) {
        files_ = std::make_unique<BufferedFiles>(*OS()->getFileManager());
        platform_ = std::make_unique<ForwardingOS>(*OS());
        platform_->use(*files_);
        setOS(platform_.get());
    }
    if (FsysInitialize() != 1)
        throw std::runtime_error("the engine does not start");
    FsysSetImmediateRequestHandling(!work.deferred);
}

Engine::~Engine()
{
    Shutdown::run(Shutdown::eNormalExit);
    setOS(nullptr);
}

FsysFile* openWithEngine(const std::string& path, unsigned flags, const Work& work)
{
    FsysFile* file = nullptr;
    if (FsysOpen(&file, fromUTF8(path), work.coalesceLength, flags, nullptr) != 1)
        throw std::runtime_error("the engine cannot open " + path);
    return file;
}
