#include "exchange/files/staged_directory.h"

#include "exchange/files/detail_staging.h"
#include "exchange/files/files.h"
#include "exchange/files/output_error.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace voalgo {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(std::errc why)
{
    throw std::system_error(std::make_error_code(why));
}

bool Contains(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// The folders between an existing one and a path that do not exist, the outermost first.
std::vector<fs::path> MissingFolders(const fs::path& path)
{
    std::vector<fs::path> missing;
    for (fs::path folder = path.parent_path(); !fs::exists(folder); folder = folder.parent_path())
        missing.insert(missing.begin(), folder);
    return missing;
}

/// A path without links, dots and an ending slash, even if nothing is there.
fs::path Resolved(const fs::path& path)
{
    const fs::path resolved = fs::weakly_canonical(fs::absolute(path));
    return resolved.has_filename() ? resolved : resolved.parent_path();
}

/// Gives every other entry of a directory a second name in the staged one. Returns whether that was possible.
bool LinkOthers(const fs::path& from, const fs::path& to, const std::vector<std::string>& names)
{
    std::error_code error;
    for (fs::directory_iterator entry(from, error), end; !error && entry != end; entry.increment(error)) {
        const fs::path name = entry->path().filename();
        if (!Contains(names, name.string())) fs::create_hard_link(entry->path(), to / name, error);
        if (error) return false;
    }
    return !error;
}

/// Takes back what others added to a directory while it was replaced.
void MoveLatecomers(const fs::path& from, const fs::path& to, const std::vector<std::string>& names)
{
    std::error_code ignored;
    std::vector<fs::path> others;
    for (fs::directory_iterator entry(from, ignored), end; !ignored && entry != end; entry.increment(ignored))
        if (!Contains(names, entry->path().filename().string())) others.push_back(entry->path());
    for (const fs::path& path : others) (void)disk::MoveUnlessTaken(path, to / path.filename());
}

} // namespace

StagedDirectory::StagedDirectory(const std::string& directory, std::vector<std::string> names)
    : directory_(directory), names_(std::move(names))
{
    try {
        target_ = Resolved(directory);
        if (fs::exists(target_) && !fs::is_directory(target_)) Fail(std::errc::not_a_directory);
        requireWritable();
        made_ = MissingFolders(target_);
        if (!made_.empty()) fs::create_directories(target_.parent_path());
        staged_ = std::make_unique<Staged>(StageDirectory(target_, names_));
    } catch (const OutputError&) {
        throw;
    } catch (const std::system_error& error) {
        throw OutputError(directory_, error.code());
    }
}

StagedDirectory::~StagedDirectory()
{
    if (!staged_) return;
    std::error_code ignored;
    RemoveStaged(staged_->path, names_);
    for (auto folder = made_.rbegin(); folder != made_.rend(); ++folder) fs::remove(*folder, ignored);
}

void StagedDirectory::Add(const std::string& name, const std::function<void(const std::string&)>& write)
{
    added_.push_back(name);
    try {
        write((staged_->path / name).string());
    } catch (const OutputError& error) {
        throw OutputError(InDirectory(directory_, name), error.code());
    }
}

void StagedDirectory::Keep()
{
    try {
        staged_->entry.Sync();
        for (const std::string& name : added_)
            if (fs::exists(target_ / name)) (void)disk::CopyRights(target_ / name, staged_->path / name);
        const disk::InterruptsHeld held;
        if (!replaceDirectory()) replaceFiles();
        disk::SyncNames(target_);
        disk::SyncNames(target_.parent_path());
    } catch (const std::system_error& error) {
        throw OutputError(directory_, error.code());
    }
    staged_.reset();
}

std::vector<std::string> StagedDirectory::Paths() const
{
    std::vector<std::string> paths;
    for (const std::string& name : added_) paths.push_back(InDirectory(directory_, name));
    return paths;
}

void StagedDirectory::requireWritable() const
{
    for (const std::string& name : names_) {
        const fs::path path = target_ / name;
        if (!fs::exists(path)) continue;
        try {
            if (fs::is_directory(path)) Fail(std::errc::is_a_directory);
            disk::RequireWritable(path);
        } catch (const std::system_error& error) {
            throw OutputError(InDirectory(directory_, name), error.code());
        }
    }
}

/// One step for all files, if nothing speaks against another directory in the place of this one.
bool StagedDirectory::replaceDirectory()
{
    std::error_code error;
    if (!fs::exists(target_)) {
        staged_->entry.PrepareRename();
        fs::rename(staged_->path, target_, error);
        if (!error) return true;
    }
    if (fs::equivalent(target_, ".", error)) return false;
    if (const fs::path beside = target_.parent_path() / staged_->path.filename(); staged_->path != beside) {
        fs::rename(staged_->path, beside, error);
        if (error) return false;
        staged_->path = beside;
    }
    if (!disk::CopyRights(target_, staged_->path) || !LinkOthers(target_, staged_->path, names_) ||
        !disk::Exchange(target_, staged_->path))
        return false;
    MoveLatecomers(staged_->path, target_, names_);
    RemoveStaged(staged_->path, names_);
    return true;
}

void StagedDirectory::replaceFiles()
{
    std::error_code ignored;
    for (const std::string& name : added_) fs::rename(staged_->path / name, target_ / name);
    for (const std::string& name : names_)
        if (!Contains(added_, name)) fs::remove(target_ / name, ignored);
    RemoveStaged(staged_->path, names_);
}

bool IsInFolder(const std::string& path, const std::string& directory)
{
    return Resolved(fs::absolute(path).parent_path()) == Resolved(directory); // the file may be a link to elsewhere
}

} // namespace voalgo
