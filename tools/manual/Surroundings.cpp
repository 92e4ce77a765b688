#include "Surroundings.h"

const std::vector<Described>& environmentVariables()
{
    static const std::vector<Described> variables = {
        {"FSYS_SPACE", "The project space, where --space names none."},
        {"FSYS_CONFIG",
         "The file of configuration integers, instead of the user's and the machine's. It holds lines "
         "of the form \"key = value\"."},
        {"FSYS_CFG_KEY", "Overrides the configuration integer KEY of any file."},
        {"FSYS_PREFS", "The file of preferences, instead of the user's."},
        {"FSYS_LOG", "The file that the log is written to, instead of the user's."},
        {"FSYS_IO_BACKEND",
         "How media is read and written: uring (the kernel's ring) or threads (a pool of threads). "
         "Without it the ring is taken where one can be built."},
        {"FSYS_SMB_CONF",
         "Samba's configuration, instead of the one below /etc/samba. User shares are not looked for "
         "then."},
        {"FSYS_OS_DEBUG",
         "1: the lowest library tells on standard error what it decides. Seen with --verbose."},
        {"XDG_DATA_HOME",
         "Where the default project space lies; ~/.local/share without it, or when it is no absolute "
         "path."},
        {"XDG_CONFIG_HOME",
         "Where the user's configuration and preferences lie; ~/.config without it, or when it is "
         "no absolute path."},
        {"XDG_STATE_HOME", "Where the log lies; ~/.local/state without it, or when it is no absolute path."},
        {"HOME", "The home folder, where those three name none."},
        {"TMPDIR", "The folder for temporary files, where the demo works."},
    };
    return variables;
}

const std::vector<Described>& files()
{
    static const std::vector<Described> known = {
        {"~/.local/share/fsys",
         "The default project space. It and every other one holds the files that follow."},
        {"SPACE/DefNetDrive.txt", "The registered media locations."},
        {"SPACE/UnmountedDrives.txt", "Drives that discovery finds and somebody has removed."},
        {"SPACE/MediaHashes.jsonl", "Hashes of media files, for fsys verify: a JSON object per line."},
        {"LOCATION/Material, LOCATION/Sound", "The folders of a media location that hold its media."},
        {"LOCATION/Material/MediaSpaceInfo.txt", "The name of the location."},
        {"NAME.partial", "A recording that has not been finished; see fsys-recover(1)."},
        {"~/.config/fsys/fsys.conf, /etc/fsys.conf",
         "Configuration integers, as lines of the form \"key = value\". The "
         "user's file comes first."},
        {"~/.config/fsys/preferences", "The user's preferences."},
        {"~/.local/state/fsys/fsys.log", "The log."},
    };
    return known;
}
