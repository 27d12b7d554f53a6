#pragma once
// Free helpers the whole core shares: ids, time spans, field text, checksums, temporary files.

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "librivo/Json.h"

namespace rivo {

class DB;

// --- Ids ---

// An epoch-millisecond id not yet used in `table`'s id column.
int64_t timestampID(DB& db, const std::string& table);
// One more than the current millisecond and every card and note id, as decimal text.
std::string maxID(DB& db);

// --- Time spans ---

struct TimePeriod {
  std::string unit;  // "years", "months", "days", "hours", "minutes" or "seconds"
  int point = 0;     // fraction digits to show
};

TimePeriod optimalPeriod(int64_t seconds, int point, int maxUnit);
// Raises std::invalid_argument for a unit not listed in TimePeriod.
float convertSecondsTo(float seconds, const std::string& unit);
// "2 days", "1.5 months", "3h": the largest fitting unit, capped by maxUnit (0 seconds .. 4
// months). `minDigits` pads the integer part; `inTime` marks the phrase for translators.
std::string fmtTimeSpan(int minDigits, int point, bool shortForm, bool inTime, int maxUnit,
                        float seconds);

// --- Field text ---

std::string stripHTML(const std::string& text);
// As stripHTML, but an image first turns into its file name.
std::string stripHTMLMedia(const std::string& text);
std::string stripSounds(const std::string& text);
std::string joinFields(const std::vector<std::string>& fields);
std::vector<std::string> splitFields(std::string_view text);
// "(1,2,3)" for SQL's "in"; "()" when empty.
std::string ids2str(const std::vector<int64_t>& ids);
std::string ids2str(const std::vector<std::string>& ids);
// A JavaScript string literal, with image file names made ASCII so that the web view finds them.
std::string jsEscape(const std::string& text);

// --- Checksums and random ids ---

// SHA-1 as 40 lowercase hexadecimal digits.
std::string checksum(std::string_view text);
std::string checksum(const std::vector<uint8_t>& bytes);
// The notes.csum value: the first 32 bits of the checksum of the field's visible text.
int64_t fieldChecksum(const std::string& field);
// "%llu" of the hexadecimal number; "0" when the text holds no hexadecimal digit.
std::string hexToDecimal(std::string_view hex);
// Digits of a-z A-Z 0-9 then `extra`, most significant first; 0 gives "".
std::string base62(uint64_t num, std::string_view extra = {});
// A random note guid of up to 10 characters.
std::string guid64();
float randomBetween(float low, float high);

// --- Grouping ---

// Case-insensitive order, as a person reading a list of names expects.
bool caseInsensitiveLess(const std::string& a, const std::string& b);

// Items grouped by key, each group in case-insensitive key order; items with an empty key are
// dropped.
template <class T, class KeyFn>
std::map<std::string, std::vector<T>> groupBy(const std::vector<T>& items, KeyFn key) {
  std::vector<std::pair<std::string, const T*>> keyed;
  keyed.reserve(items.size());
  for (const T& item : items) keyed.emplace_back(key(item), &item);
  std::stable_sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) {
    return caseInsensitiveLess(a.first, b.first);
  });
  std::map<std::string, std::vector<T>> groups;
  for (const auto& [k, item] : keyed) {
    if (!k.empty()) groups[k].push_back(*item);
  }
  return groups;
}

// --- Files and platform ---

// The temporary folder of a collection or a client nobody pointed elsewhere; the application
// points them into its data folder, which it empties at each launch.
inline constexpr const char* kDefaultTmpDir = "/tmp";
// Writes to a new unique "*.tmp" file in `folder` and returns its path; raises
// std::runtime_error if the file can't be written.
std::string tmpFileFromData(const std::string& folder, std::string_view bytes);
std::string tmpFileFromData(const std::string& folder, const std::vector<uint8_t>& bytes);
std::string tmpFileFromJSON(const std::string& folder, const Json& value);
// Writes all of `bytes` to the open file, going on after interruptions and short writes;
// false (errno set) when a write fails.
bool writeAll(int fd, std::string_view bytes);
// Removes everything inside `dir`, ignoring failures; `dir` itself stays.
void clearTempDir(const std::string& dir);
// Moves a file over `to` in one step, and syncs the folder; from another file system by way of a
// synced copy beside `to`, renamed over it. False, with `problem` set, when it can't.
bool moveFile(const std::string& from, const std::string& to, std::string* problem);
// Flushes a file's bytes (or a folder's entries) to the disk; false when that fails.
bool syncPath(const std::string& path);
// Bytes free for this program on the disk holding `dir`; UINT64_MAX when it can't be told.
uint64_t freeBytes(const std::string& dir);
// "640 KB", "12.5 MB", "1.2 GB": a size for a sentence.
std::string sizeText(uint64_t bytes);
// "linux:" and the kernel release.
std::string platformDesc();
// One line of standard input without its line end; on a terminal, `prompt` goes to standard
// error first and the typed text isn't shown (for passwords).
std::string readHiddenLine(const std::string& prompt);

struct Error {
  std::string domain;
  int code = 1;
  std::string message;
};

Error errorWithMessage(const std::string& domain, const std::string& message);

// --- Strings ---

// folder/UUID.extension, for a name not yet present in the folder.
std::string getUniqueFilenameInFolder(const std::string& folder, const std::string& extension);
// Puts a backslash before each of "[\^$.|?*+(){}", one character after the other in that
// order, so the backslash added for "[" is doubled too and a "[" in a name matches nothing.
std::string escapeRegexFromString(const std::string& text);
// Reversed by UTF-16 code unit.
std::string reverseString(const std::string& text);

}  // namespace rivo
