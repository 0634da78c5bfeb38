#include "exchange/files/staged_file.h"

#include "exchange/files/detail_staging.h"
#include "exchange/files/output_error.h"

#include <cerrno>
#include <ios>
#include <utility>

namespace voalgo {

namespace {

namespace fs = std::filesystem;

/// Does it; says which file could not be written.
template <class Function>
void Naming(const std::string& path, const Function& function)
{
    try {
        function();
    } catch (const OutputError& error) {
        throw OutputError(path, error.code());
    } catch (const std::ios_base::failure&) { // whose code is always the same
        throw OutputError(path, {errno != 0 ? errno : EIO, std::generic_category()});
    } catch (const std::system_error& error) {
        throw OutputError(path, error.code());
    }
}

Staged Open(const fs::path& target)
{
    const fs::file_status status = fs::status(target);
    if (!fs::exists(status)) return StageFile(target);
    if (fs::is_directory(status)) throw std::system_error(std::make_error_code(std::errc::is_a_directory));
    if (!fs::is_regular_file(status)) return {target, disk::Entry::OpenDevice(target)};
    disk::RequireWritable(target);
    return StageFile(target);
}

} // namespace

StagedFile::StagedFile(const std::string& path) : path_(path)
{
    Naming(path_, [&] {
        target_ = fs::exists(path) ? fs::canonical(path) : fs::absolute(path);
        staged_ = std::make_unique<Staged>(Open(target_));
    });
}

StagedFile::StagedFile(StagedFile&&) noexcept = default;
StagedFile& StagedFile::operator=(StagedFile&&) noexcept = default;

StagedFile::~StagedFile()
{
    std::error_code ignored;
    if (staged_ && !isInPlace()) fs::remove(staged_->path, ignored);
}

void StagedFile::Write(std::string_view bytes)
{
    Naming(path_, [&] { staged_->entry.Write(bytes); });
}

void StagedFile::WriteBy(const std::function<void(const std::string&)>& write)
{
    Naming(path_, [&] { write(staged_->path.string()); });
}

void StagedFile::Keep()
{
    Naming(path_, [&] {
        staged_->entry.Sync();
        if (!isInPlace()) {
            if (fs::exists(target_)) (void)disk::CopyRights(target_, staged_->path);
            staged_->entry.PrepareRename();
            fs::rename(staged_->path, target_);
            disk::SyncNames(target_.parent_path());
        }
    });
    staged_.reset();
}

bool StagedFile::isInPlace() const
{
    return staged_->path == target_;
}

} // namespace voalgo
