#pragma once
// Files on the disk: temporary files, moves that survive a crash, free space and its wording.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "librivo/Json.h"

namespace rivo {

// The temporary folder of a collection or a client nobody pointed elsewhere; the application
// points them into its data folder, which it empties at each launch.
inline constexpr const char* kDefaultTmpDir = "/tmp";
// Writes to a new unique "*.tmp" file in `folder` and returns its path; raises
// std::runtime_error if the file can't be written.
std::string tmpFileFromData(const std::string& folder, std::string_view bytes);
std::string tmpFileFromData(const std::string& folder, const std::vector<uint8_t>& bytes);
std::string tmpFileFromJSON(const std::string& folder, const Json& value);
// folder/UUID.extension, for a name not yet present in the folder.
std::string getUniqueFilenameInFolder(const std::string& folder, const std::string& extension);
// Writes all of `bytes` to the open file, going on after interruptions and short writes;
// false (errno set) when a write fails.
bool writeAll(int fd, std::string_view bytes);
// Removes everything inside `dir`, ignoring failures; `dir` itself stays.
void clearTempDir(const std::string& dir);
// Moves a file over `to` in one step, and syncs the folder; from another file system by way of a
// synced copy beside `to`, renamed over it. False, with `problem` set, when it can't.
bool moveFile(const std::string& from, const std::string& to, std::string* problem);
// Writes `bytes` to a new file beside `path`, created with `mode` (less the umask), syncs it and
// moves it over `path`, so a crash leaves the old file or the new one, whole. False, with
// `problem` set and the old file as it was, when it can't.
bool writeFileAtomically(const std::string& path, std::string_view bytes, mode_t mode,
                         std::string* problem);
// Flushes a file's bytes (or a folder's entries) to the disk; false when that fails.
bool syncPath(const std::string& path);
// Bytes free for this program on the disk holding `dir`; UINT64_MAX when it can't be told.
uint64_t freeBytes(const std::string& dir);
// "640 KB", "12.5 MB", "1.2 GB": a size for a sentence.
std::string sizeText(uint64_t bytes);

}  // namespace rivo
