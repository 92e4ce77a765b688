#include "Removal.h"

#include "Command.h"
#include "Qz/StringHelpers.h"
#include "os/LastError.h"
#include "os/OS.h"
#include "support/PathHelpers.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace {

using Path = LightweightString<wchar_t>;

void add(std::vector<RemovalItem>& plan, const Path& path, RemovalItem::Kind kind)
{
    if (std::none_of(plan.begin(), plan.end(), [&](const RemovalItem& item) { return item.path == path; }))
        plan.push_back({path, kind});
}

// By the folder as the link names it; a step upwards leads out of it.
bool belongsToLink(const TestedFile& file)
{
    const Path linkFolder = getPath(file.path);
    const Path targetFolder = getPath(file.target);
    return file.isLink && file.targetExists && !linkFolder.empty() && targetFolder != linkFolder &&
           Qz::startsWithIgnoringCase(targetFolder, linkFolder) &&
           (L"/" + targetFolder).find(L"/../") == Path::npos;
}

bool isThere(const Path& path)
{
    std::error_code error;
    return std::filesystem::symlink_status(utf8(path), error).type() != std::filesystem::file_type::not_found;
}

bool isSameFile(const TestedFile& a, const TestedFile& b)
{
    std::error_code error;
    return std::filesystem::equivalent(utf8(a.path), utf8(b.path), error) && !error;
}

const char* textOf(RemovalItem::Kind kind)
{
    return kind == RemovalItem::media ? "media" : kind == RemovalItem::target ? "target" : "companion";
}

}  // namespace

std::vector<RemovalItem> planRemoval(const std::vector<TestedFile>& files)
{
    std::vector<RemovalItem> plan;
    for (const TestedFile& file : files) {
        if (isThere(file.path))
            add(plan, file.path, RemovalItem::media);
        if (belongsToLink(file))
            add(plan, file.target, RemovalItem::target);
        std::vector<iFileManager::DirectoryItem> companions;
        const Path folder = getPath(file.path);
        OS()->getFileManager()->listFilesWithPrefix(folder, stripPath(file.path) + L".", companions);
        for (const iFileManager::DirectoryItem& companion : companions)
            add(plan, folder + companion.name, RemovalItem::companion);
    }
    return plan;
}

RemovalReport checkRemoval(const std::vector<RemovalItem>& plan)
{
    RemovalReport report;
    for (const RemovalItem& item : plan) {
        if (!isThere(item.path))
            report.removed.push_back(item);
        // Whether a target goes is the cache's decision alone.
        else if (item.kind == RemovalItem::target)
            report.left.push_back({item, "it is still there"});
        else if (OS()->getFileManager()->deleteFile(item.path))
            report.removed.push_back(item);
        else
            report.left.push_back({item, errorText(lastError()).str()});
    }
    return report;
}

const TestedFile* findShared(const std::vector<TestedFile>& leaving, const std::vector<TestedFile>& staying)
{
    for (const TestedFile& file : leaving)
        if (std::any_of(staying.begin(), staying.end(),
                        [&](const TestedFile& other) { return isSameFile(file, other); }))
            return &file;
    return nullptr;
}

Json describeItems(const std::vector<RemovalItem>& items)
{
    Json described = Json::array();
    for (const RemovalItem& item : items)
        described.push_back({{"file", utf8(item.path)}, {"kind", textOf(item.kind)}});
    return described;
}

int answerPlan(bool json, const Cookie& cookie, const std::vector<RemovalItem>& plan)
{
    if (json) {
        answerJson({{"cookie", cookie.asString(true).str()},
                    {"dry_run", true},
                    {"removed", describeItems(plan)},
                    {"failed", Json::array()}});
        return exitDone;
    }
    for (const RemovalItem& item : plan)
        answer("would remove %-9s  %s\n", textOf(item.kind), utf8(item.path).c_str());
    return exitDone;
}

int answerRemoval(bool json, const Cookie& cookie, const RemovalReport& report)
{
    Json failed = Json::array();
    for (const RemovalReport::Left& left : report.left) {
        complain("%s could not be removed: %s", utf8(left.item.path).c_str(), left.reason.c_str());
        failed.push_back({{"file", utf8(left.item.path)}, {"reason", left.reason}});
    }
    if (json)
        answerJson({{"cookie", cookie.asString(true).str()},
                    {"dry_run", false},
                    {"removed", describeItems(report.removed)},
                    {"failed", failed}});
    else
        for (const RemovalItem& item : report.removed)
            answer("removed %-9s  %s\n", textOf(item.kind), utf8(item.path).c_str());
    return report.left.empty() ? exitDone : exitFailed;
}
