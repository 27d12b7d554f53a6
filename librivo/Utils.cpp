#include "librivo/Utils.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <termios.h>
#include <unicode/regex.h>
#include <unicode/unistr.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "librivo/Clock.h"
#include "librivo/Compression.h"
#include "librivo/DB.h"
#include "librivo/HtmlEscape.h"

namespace rivo {

namespace {

constexpr char kFieldSeparator = '\x1f';
constexpr std::string_view kBase62Alphabet =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
constexpr std::string_view kGuidExtra = "!#$%&()*+,-./:;<=>?@[]^_`{|}~";

struct TimeUnit {
  const char* name;
  int64_t seconds;
  const char* shortSuffix;
  const char* word;
};

// Descending size; a month is 30 days and a year 365, with no calendar involved.
constexpr std::array<TimeUnit, 6> kTimeUnits{{
    {"years", 31536000, "y", "year"},
    {"months", 2592000, "mo", "month"},
    {"days", 86400, "d", "day"},
    {"hours", 3600, "h", "hour"},
    {"minutes", 60, "m", "minute"},
    {"seconds", 1, "s", "second"},
}};

const TimeUnit& timeUnit(const std::string& name) {
  for (const TimeUnit& u : kTimeUnits)
    if (name == u.name) return u;
  throw std::invalid_argument("unknown time unit: " + name);
}

// --- Regular expressions: compiled once; patterns are immutable and safe to share. ---

std::unique_ptr<icu::RegexPattern> compilePattern(const char16_t* source) {
  UErrorCode status = U_ZERO_ERROR;
  UParseError where;
  std::unique_ptr<icu::RegexPattern> pattern(
      icu::RegexPattern::compile(icu::UnicodeString(source), where, status));
  if (U_FAILURE(status)) throw std::logic_error("bad built-in regular expression");
  return pattern;
}

const icu::RegexPattern& styleBlock() {
  static const auto p = compilePattern(u"(?s)<style.*?>.*?</style>");
  return *p;
}
const icu::RegexPattern& scriptBlock() {
  static const auto p = compilePattern(u"(?s)<script.*?>.*?</script>");
  return *p;
}
const icu::RegexPattern& anyTag() {
  static const auto p = compilePattern(u"<.*?>");
  return *p;
}
const icu::RegexPattern& simpleImage() {
  static const auto p = compilePattern(u"<img src=[\"']?([^\"'>]+)[\"']? ?/?>");
  return *p;
}
const icu::RegexPattern& soundTag() {
  static const auto p = compilePattern(u"\\[sound:.*?\\]");
  return *p;
}
const icu::RegexPattern& imageWithSource() {
  static const auto p =
      compilePattern(u"<img[^>]*src=[\"']?([^\"'>]*\\.[^\\s'\"]{1,6})[\"']?[^>]*>");
  return *p;
}

icu::UnicodeString utf16(std::string_view text) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), text.size()));
}

std::string utf8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

icu::UnicodeString replaceAll(const icu::RegexPattern& pattern, const icu::UnicodeString& text,
                              const icu::UnicodeString& replacement) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> m(pattern.matcher(text, status));
  if (U_FAILURE(status)) throw std::runtime_error("regular expression matcher failed");
  icu::UnicodeString out = m->replaceAll(replacement, status);
  if (U_FAILURE(status)) throw std::runtime_error("regular expression replacement failed");
  return out;
}

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

// Each pass needs its opening literal; testing for it first spares plain fields (most of them,
// in bulk updates) the regular-expression machinery.
icu::UnicodeString stripTags(icu::UnicodeString s, bool hasStyle, bool hasScript) {
  const icu::UnicodeString none;
  if (hasStyle) s = replaceAll(styleBlock(), s, none);
  if (hasScript) s = replaceAll(scriptBlock(), s, none);
  return replaceAll(anyTag(), s, none);
}

// Image file names as ASCII entities, so that a name with accents reaches the web view intact.
std::string escapeImageSources(const std::string& text) {
  const icu::UnicodeString in = utf16(text);
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> m(imageWithSource().matcher(in, status));
  if (U_FAILURE(status)) throw std::runtime_error("regular expression matcher failed");
  icu::UnicodeString out;
  int32_t copied = 0;
  while (m->find(status) && U_SUCCESS(status)) {
    const int32_t start = m->start(1, status), end = m->end(1, status);
    out.append(in, copied, start - copied);
    out.append(utf16(stringByEscapingForAsciiHTML(utf8(in.tempSubStringBetween(start, end)))));
    copied = end;
  }
  out.append(in, copied, in.length() - copied);
  return utf8(out);
}

// --- Number text of time spans ---

// At most `maxFraction` fraction digits, rounded half to even (glibc rounds the exact binary
// value that way), trailing zeros dropped, "." as separator, the integer part padded to
// `minDigits`.
std::string formatNumber(float x, int minDigits, int maxFraction) {
  char buf[128];
  std::snprintf(buf, sizeof buf, "%.*f", std::clamp(maxFraction, 0, 30), static_cast<double>(x));
  std::string s = buf;
  std::string sign;
  if (!s.empty() && s[0] == '-') {
    sign = "-";
    s.erase(0, 1);
  }
  std::string whole = s, fraction;
  if (size_t dot = s.find('.'); dot != std::string::npos) {
    whole = s.substr(0, dot);
    fraction = s.substr(dot + 1);
    while (!fraction.empty() && fraction.back() == '0') fraction.pop_back();
  }
  if (static_cast<int>(whole.size()) < minDigits)
    whole.insert(0, static_cast<size_t>(minDigits) - whole.size(), '0');
  return sign + whole + (fraction.empty() ? "" : "." + fraction);
}

int64_t truncateSeconds(float seconds) {
  if (!std::isfinite(seconds)) return 0;
  return static_cast<int64_t>(std::clamp(static_cast<double>(seconds), -9.0e18, 9.0e18));
}

std::string randomUUID() {
  std::array<unsigned char, 16> b{};
  if (RAND_bytes(b.data(), static_cast<int>(b.size())) != 1)
    throw std::runtime_error("random number source failed");
  b[6] = static_cast<unsigned char>((b[6] & 0x0f) | 0x40);
  b[8] = static_cast<unsigned char>((b[8] & 0x3f) | 0x80);
  char out[37];
  std::snprintf(out, sizeof out,
                "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", b[0], b[1],
                b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14],
                b[15]);
  return out;
}

using Sha1Digest = std::array<uint8_t, 20>;

Sha1Digest sha1(const void* data, size_t size) {
  // Fetched once: an implicit fetch on each call costs more than hashing a short field.
  static const std::unique_ptr<EVP_MD, decltype(&EVP_MD_free)> md(
      EVP_MD_fetch(nullptr, "SHA1", nullptr), &EVP_MD_free);
  Sha1Digest digest{};
  unsigned int length = 0;
  if (!md || EVP_Digest(data, size, digest.data(), &length, md.get(), nullptr) != 1 ||
      length != digest.size())
    throw std::runtime_error("SHA-1 failed");
  return digest;
}

std::string sha1Hex(const void* data, size_t size) {
  const Sha1Digest d = sha1(data, size);
  return hexadecimalString(std::string_view(reinterpret_cast<const char*>(d.data()), d.size()));
}

template <class T>
std::string joinIds(const std::vector<T>& ids) {
  std::string out = "(";
  for (size_t i = 0; i < ids.size(); ++i) {
    if (i) out += ',';
    if constexpr (std::is_same_v<T, std::string>)
      out += ids[i];
    else
      out += std::to_string(ids[i]);
  }
  return out + ")";
}

}  // namespace

// --- Ids ---

namespace {

// The statements timestampID sends for one table.
struct IdStatements {
  // The first id after a run of taken ones (the id given must be taken), in one statement.
  std::string endOfRun;
  std::string taken;
  // The id given when it is free, else the end of its run.
  std::string freeOrEndOfRun;

  explicit IdStatements(const std::string& table)
      : endOfRun("select id + 1 from " + table +
                 " t where id >= ?1 and not exists (select 1 from " + table +
                 " where id = t.id + 1) order by id limit 1"),
        taken("select id from " + table + " where id = ?"),
        freeOrEndOfRun("select coalesce((select ?1 where not exists (select 1 from " + table +
                       " where id = ?1)), (" + endOfRun + "))") {}
};

}  // namespace

int64_t timestampID(DB& db, const std::string& table) {
  // Made once for the tables that get an id for every note and card added.
  static const IdStatements notes("notes"), cards("cards");
  std::optional<IdStatements> other;
  const IdStatements& sql = table == "notes"   ? notes
                            : table == "cards" ? cards
                                               : other.emplace(table);
  const int64_t now = intTime(1000);
  const std::optional<DB::TakenIds> known = db.takenIds(table);
  int64_t from = now, id = now;
  if (known && known->from <= now && now < known->to) {
    // Rows added faster than the clock moves: start past the part of the run already known.
    from = known->from;
    id = db.scalarInt(sql.freeOrEndOfRun, {known->to});
  } else if (db.scalar(sql.taken, {now})) {
    id = db.scalarInt(sql.endOfRun, {now});
  }
  db.setTakenIds(table, {from, id});
  return id;
}

std::string maxID(DB& db) {
  int64_t now = intTime(1000);
  for (const char* table : {"cards", "notes"})
    now = std::max(now, db.scalarInt(std::string("select max(id) from ") + table));
  return std::to_string(now + 1);
}

// --- Time spans ---

TimePeriod optimalPeriod(int64_t seconds, int point, int maxUnit) {
  const int64_t t = seconds < 0 ? -seconds : seconds;
  TimePeriod p{"", point};
  if (t < 60 || maxUnit < 1) {
    p = {"seconds", point - 1};
  } else if (t < 3600 || maxUnit == 1) {
    p.unit = "minutes";
  } else if (t < 86400 || maxUnit == 2) {
    p.unit = "hours";
  } else if (t < 2592000 || maxUnit == 3) {
    p.unit = "days";
  } else if (t < 31536000 || maxUnit == 4) {
    p = {"months", point + 1};
  } else {
    p = {"years", point + 1};
  }
  p.point = std::max(p.point, 0);
  return p;
}

float convertSecondsTo(float seconds, const std::string& unit) {
  return seconds / static_cast<float>(timeUnit(unit).seconds);
}

std::string fmtTimeSpan(int minDigits, int point, bool shortForm, bool inTime, int maxUnit,
                        float seconds) {
  const int64_t whole = truncateSeconds(seconds);
  const TimePeriod period = optimalPeriod(whole, point, maxUnit);
  const TimeUnit& unit = timeUnit(period.unit);
  float x = convertSecondsTo(static_cast<float>(whole), period.unit);
  if (period.point == 0) x = std::round(x);
  const std::string number = formatNumber(x, minDigits, period.point);
  if (shortForm) return number + unit.shortSuffix;
  std::string text = number + " " + unit.word;
  if (number != "1") text += "s";
  if (inTime) text += "<!--after-->";
  return text;
}

// --- Field text ---

std::string stripHTML(const std::string& text) {
  if (!contains(text, "<")) return text;
  return utf8(stripTags(utf16(text), contains(text, "<style"), contains(text, "<script")));
}

std::string stripHTMLMedia(const std::string& text) {
  if (!contains(text, "<img")) return stripHTML(text);
  const icu::UnicodeString s = replaceAll(simpleImage(), utf16(text), u"$1");
  // Probed after the replacement, which can join the pieces of a "<style".
  return utf8(stripTags(s, s.indexOf(u"<style") >= 0, s.indexOf(u"<script") >= 0));
}

std::string stripSounds(const std::string& text) {
  if (!contains(text, "[sound:")) return text;
  return utf8(replaceAll(soundTag(), utf16(text), icu::UnicodeString()));
}

std::string joinFields(const std::vector<std::string>& fields) {
  size_t size = fields.size();
  for (const std::string& f : fields) size += f.size();
  std::string out;
  out.reserve(size);
  for (size_t i = 0; i < fields.size(); ++i) {
    if (i) out += kFieldSeparator;
    out += fields[i];
  }
  return out;
}

std::vector<std::string> splitFields(std::string_view text) {
  std::vector<std::string> fields;
  size_t start = 0;
  for (;;) {
    const size_t end = text.find(kFieldSeparator, start);
    if (end == std::string_view::npos) break;
    fields.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
  fields.emplace_back(text.substr(start));
  return fields;
}

std::string ids2str(const std::vector<int64_t>& ids) {
  return joinIds(ids);
}
std::string ids2str(const std::vector<std::string>& ids) {
  return joinIds(ids);
}

std::string jsEscape(const std::string& text) {
  const std::string html = contains(text, "<img") ? escapeImageSources(text) : text;
  const std::string json = Json(html).dump(-1, ' ', false, Json::error_handler_t::replace);
  // Valid in JSON, but line terminators inside the string literals of older JavaScript.
  std::string escaped;
  escaped.reserve(json.size());
  for (size_t i = 0; i < json.size(); ++i) {
    if (json.compare(i, 3, "\xE2\x80\xA8") == 0 || json.compare(i, 3, "\xE2\x80\xA9") == 0) {
      escaped += json[i + 2] == '\xA8' ? "\\u2028" : "\\u2029";
      i += 2;
    } else {
      escaped += json[i];
    }
  }
  return escaped;
}

// --- Checksums and random ids ---

std::string checksum(std::string_view text) {
  return sha1Hex(text.data(), text.size());
}

std::string checksum(const std::vector<uint8_t>& bytes) {
  return sha1Hex(bytes.data(), bytes.size());
}

int64_t fieldChecksum(const std::string& field) {
  // The first 8 hexadecimal digits of the checksum are its first 4 bytes, big-endian.
  const std::string text = stripHTMLMedia(field);
  const Sha1Digest d = sha1(text.data(), text.size());
  return (int64_t{d[0]} << 24) | (int64_t{d[1]} << 16) | (int64_t{d[2]} << 8) | int64_t{d[3]};
}

std::string hexToDecimal(std::string_view hex) {
  size_t i = 0;
  while (i < hex.size() && std::isspace(static_cast<unsigned char>(hex[i]))) ++i;
  if (hex.substr(i, 2) == "0x" || hex.substr(i, 2) == "0X") i += 2;
  uint64_t value = 0;
  bool any = false;
  for (; i < hex.size() && std::isxdigit(static_cast<unsigned char>(hex[i])); ++i) {
    const char c = static_cast<char>(std::tolower(static_cast<unsigned char>(hex[i])));
    const uint64_t digit = c <= '9' ? c - '0' : c - 'a' + 10;
    // Too many digits saturate rather than wrap.
    value = value > (UINT64_MAX - digit) / 16 ? UINT64_MAX : value * 16 + digit;
    any = true;
  }
  return any ? std::to_string(value) : "0";
}

std::string base62(uint64_t num, std::string_view extra) {
  std::string table(kBase62Alphabet);
  table += extra;
  const uint64_t base = table.size();
  std::string digits;
  while (num > 0) {
    digits += table[num % base];
    num /= base;
  }
  return std::string(digits.rbegin(), digits.rend());
}

std::string guid64() {
  uint64_t n = 0;
  if (RAND_bytes(reinterpret_cast<unsigned char*>(&n), sizeof n) != 1)
    throw std::runtime_error("random number source failed");
  return base62(n, kGuidExtra);
}

float randomBetween(float low, float high) {
  // The width of the range in thousandths, so that every device draws from the same values.
  const int64_t n = static_cast<int64_t>((high - low) * 1000.0);
  // A reversed range has nothing to draw from; callers never pass one.
  if (n <= 0) return high;
  const float draw = static_cast<float>(static_cast<int64_t>(arc4random() % n));
  return (low * 1000.0f + draw) / 1000.0f;
}

bool caseInsensitiveLess(const std::string& a, const std::string& b) {
  return utf16(a).caseCompare(utf16(b), U_FOLD_CASE_DEFAULT) < 0;
}

// --- Files and platform ---

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

bool syncPath(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool ok = fsync(fd) == 0;
  close(fd);
  return ok;
}

bool moveFile(const std::string& from, const std::string& to, std::string* problem) {
  const std::string folder = std::filesystem::path(to).parent_path().string();
  if (rename(from.c_str(), to.c_str()) == 0) {
    syncPath(folder.empty() ? "." : folder);
    return true;
  }
  if (errno != EXDEV) {
    *problem = std::strerror(errno);
    return false;
  }
  const std::string beside = to + ".incoming";
  std::error_code ec;
  std::filesystem::copy_file(from, beside, std::filesystem::copy_options::overwrite_existing, ec);
  const bool synced = !ec && syncPath(beside);
  if (!synced || rename(beside.c_str(), to.c_str()) != 0) {
    *problem = ec ? ec.message() : std::strerror(errno);
    unlink(beside.c_str());
    return false;
  }
  unlink(from.c_str());
  syncPath(folder.empty() ? "." : folder);
  return true;
}

uint64_t freeBytes(const std::string& dir) {
  struct statvfs st {};
  if (statvfs(dir.c_str(), &st) != 0) return UINT64_MAX;
  return static_cast<uint64_t>(st.f_bavail) * st.f_frsize;
}

std::string sizeText(uint64_t bytes) {
  char text[32];
  if (bytes < (1 << 20))
    std::snprintf(text, sizeof text, "%.0f KB", static_cast<double>(bytes) / 1024);
  else if (bytes < (uint64_t{1} << 30))
    std::snprintf(text, sizeof text, "%.1f MB", static_cast<double>(bytes) / (1 << 20));
  else
    std::snprintf(text, sizeof text, "%.1f GB", static_cast<double>(bytes) / (1 << 30));
  return text;
}

std::string tmpFileFromData(const std::string& folder, std::string_view bytes) {
  std::string path = (std::filesystem::path(folder) / "XXXXXX.tmp").string();
  const int fd = mkstemps(path.data(), 4);
  if (fd < 0) throw std::runtime_error("could not create a temporary file in " + folder);
  const bool written = writeAll(fd, bytes);
  const bool closed = close(fd) == 0;
  if (!written || !closed) {
    unlink(path.c_str());
    throw std::runtime_error("could not write the temporary file " + path);
  }
  return path;
}

std::string tmpFileFromData(const std::string& folder, const std::vector<uint8_t>& bytes) {
  return tmpFileFromData(
      folder, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::string tmpFileFromJSON(const std::string& folder, const Json& value) {
  return tmpFileFromData(folder, jsonString(value));
}

void clearTempDir(const std::string& dir) {
  namespace fs = std::filesystem;
  std::error_code ec;
  std::vector<fs::path> entries;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
    entries.push_back(it->path());
  for (const fs::path& entry : entries) fs::remove_all(entry, ec);
}

std::string platformDesc() {
  utsname info{};
  if (uname(&info) != 0) return "linux:";
  return std::string("linux:") + info.release;
}

std::string readHiddenLine(const std::string& prompt) {
  const bool tty = isatty(STDIN_FILENO) == 1;
  termios saved{};
  if (tty) {
    std::fputs(prompt.c_str(), stderr);
    std::fflush(stderr);
    tcgetattr(STDIN_FILENO, &saved);
    termios quiet = saved;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
  }
  std::string line;
  char* buffer = nullptr;
  size_t capacity = 0;
  ssize_t n = getline(&buffer, &capacity, stdin);
  if (n > 0) line.assign(buffer, static_cast<size_t>(n));
  std::free(buffer);
  if (tty) {
    tcsetattr(STDIN_FILENO, TCSANOW, &saved);
    std::fputs("\n", stderr);
  }
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
  return line;
}

Error errorWithMessage(const std::string& domain, const std::string& message) {
  return Error{domain, 1, message};
}

// --- Strings ---

std::string getUniqueFilenameInFolder(const std::string& folder, const std::string& extension) {
  std::string path;
  do {
    std::string name = randomUUID();
    if (!extension.empty()) name += "." + extension;
    path = (std::filesystem::path(folder) / name).string();
  } while (std::filesystem::exists(path));
  return path;
}

std::string escapeRegexFromString(const std::string& text) {
  // One pass: escaping one character after another would escape the escapes themselves.
  static constexpr std::string_view kMeta = "[\\^$.|?*+(){}";
  std::string out;
  out.reserve(text.size() * 2);
  for (char c : text) {
    if (kMeta.find(c) != std::string_view::npos) out += '\\';
    out += c;
  }
  return out;
}

std::string reverseString(const std::string& text) {
  const icu::UnicodeString in = utf16(text);
  // Not UnicodeString::reverse, which keeps surrogate pairs together.
  std::u16string units(in.getBuffer(), static_cast<size_t>(in.length()));
  std::reverse(units.begin(), units.end());
  return utf8(icu::UnicodeString(units.data(), static_cast<int32_t>(units.size())));
}

}  // namespace rivo
