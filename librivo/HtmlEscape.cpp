#include "librivo/HtmlEscape.h"

#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace rivo {

namespace {

struct Entity {
  const char* name;
  char32_t code;
};

// The HTML 4 character entities plus "apos", sorted by code point.
constexpr std::array<Entity, 253> kEntities{{
    {"quot", 34},     {"amp", 38},      {"apos", 39},      {"lt", 60},        {"gt", 62},
    {"nbsp", 160},    {"iexcl", 161},   {"cent", 162},     {"pound", 163},    {"curren", 164},
    {"yen", 165},     {"brvbar", 166},  {"sect", 167},     {"uml", 168},      {"copy", 169},
    {"ordf", 170},    {"laquo", 171},   {"not", 172},      {"shy", 173},      {"reg", 174},
    {"macr", 175},    {"deg", 176},     {"plusmn", 177},   {"sup2", 178},     {"sup3", 179},
    {"acute", 180},   {"micro", 181},   {"para", 182},     {"middot", 183},   {"cedil", 184},
    {"sup1", 185},    {"ordm", 186},    {"raquo", 187},    {"frac14", 188},   {"frac12", 189},
    {"frac34", 190},  {"iquest", 191},  {"Agrave", 192},   {"Aacute", 193},   {"Acirc", 194},
    {"Atilde", 195},  {"Auml", 196},    {"Aring", 197},    {"AElig", 198},    {"Ccedil", 199},
    {"Egrave", 200},  {"Eacute", 201},  {"Ecirc", 202},    {"Euml", 203},     {"Igrave", 204},
    {"Iacute", 205},  {"Icirc", 206},   {"Iuml", 207},     {"ETH", 208},      {"Ntilde", 209},
    {"Ograve", 210},  {"Oacute", 211},  {"Ocirc", 212},    {"Otilde", 213},   {"Ouml", 214},
    {"times", 215},   {"Oslash", 216},  {"Ugrave", 217},   {"Uacute", 218},   {"Ucirc", 219},
    {"Uuml", 220},    {"Yacute", 221},  {"THORN", 222},    {"szlig", 223},    {"agrave", 224},
    {"aacute", 225},  {"acirc", 226},   {"atilde", 227},   {"auml", 228},     {"aring", 229},
    {"aelig", 230},   {"ccedil", 231},  {"egrave", 232},   {"eacute", 233},   {"ecirc", 234},
    {"euml", 235},    {"igrave", 236},  {"iacute", 237},   {"icirc", 238},    {"iuml", 239},
    {"eth", 240},     {"ntilde", 241},  {"ograve", 242},   {"oacute", 243},   {"ocirc", 244},
    {"otilde", 245},  {"ouml", 246},    {"divide", 247},   {"oslash", 248},   {"ugrave", 249},
    {"uacute", 250},  {"ucirc", 251},   {"uuml", 252},     {"yacute", 253},   {"thorn", 254},
    {"yuml", 255},    {"OElig", 338},   {"oelig", 339},    {"Scaron", 352},   {"scaron", 353},
    {"Yuml", 376},    {"fnof", 402},    {"circ", 710},     {"tilde", 732},    {"Alpha", 913},
    {"Beta", 914},    {"Gamma", 915},   {"Delta", 916},    {"Epsilon", 917},  {"Zeta", 918},
    {"Eta", 919},     {"Theta", 920},   {"Iota", 921},     {"Kappa", 922},    {"Lambda", 923},
    {"Mu", 924},      {"Nu", 925},      {"Xi", 926},       {"Omicron", 927},  {"Pi", 928},
    {"Rho", 929},     {"Sigma", 931},   {"Tau", 932},      {"Upsilon", 933},  {"Phi", 934},
    {"Chi", 935},     {"Psi", 936},     {"Omega", 937},    {"alpha", 945},    {"beta", 946},
    {"gamma", 947},   {"delta", 948},   {"epsilon", 949},  {"zeta", 950},     {"eta", 951},
    {"theta", 952},   {"iota", 953},    {"kappa", 954},    {"lambda", 955},   {"mu", 956},
    {"nu", 957},      {"xi", 958},      {"omicron", 959},  {"pi", 960},       {"rho", 961},
    {"sigmaf", 962},  {"sigma", 963},   {"tau", 964},      {"upsilon", 965},  {"phi", 966},
    {"chi", 967},     {"psi", 968},     {"omega", 969},    {"thetasym", 977}, {"upsih", 978},
    {"piv", 982},     {"ensp", 8194},   {"emsp", 8195},    {"thinsp", 8201},  {"zwnj", 8204},
    {"zwj", 8205},    {"lrm", 8206},    {"rlm", 8207},     {"ndash", 8211},   {"mdash", 8212},
    {"lsquo", 8216},  {"rsquo", 8217},  {"sbquo", 8218},   {"ldquo", 8220},   {"rdquo", 8221},
    {"bdquo", 8222},  {"dagger", 8224}, {"Dagger", 8225},  {"bull", 8226},    {"hellip", 8230},
    {"permil", 8240}, {"prime", 8242},  {"Prime", 8243},   {"lsaquo", 8249},  {"rsaquo", 8250},
    {"oline", 8254},  {"frasl", 8260},  {"euro", 8364},    {"image", 8465},   {"weierp", 8472},
    {"real", 8476},   {"trade", 8482},  {"alefsym", 8501}, {"larr", 8592},    {"uarr", 8593},
    {"rarr", 8594},   {"darr", 8595},   {"harr", 8596},    {"crarr", 8629},   {"lArr", 8656},
    {"uArr", 8657},   {"rArr", 8658},   {"dArr", 8659},    {"hArr", 8660},    {"forall", 8704},
    {"part", 8706},   {"exist", 8707},  {"empty", 8709},   {"nabla", 8711},   {"isin", 8712},
    {"notin", 8713},  {"ni", 8715},     {"prod", 8719},    {"sum", 8721},     {"minus", 8722},
    {"lowast", 8727}, {"radic", 8730},  {"prop", 8733},    {"infin", 8734},   {"ang", 8736},
    {"and", 8743},    {"or", 8744},     {"cap", 8745},     {"cup", 8746},     {"int", 8747},
    {"there4", 8756}, {"sim", 8764},    {"cong", 8773},    {"asymp", 8776},   {"ne", 8800},
    {"equiv", 8801},  {"le", 8804},     {"ge", 8805},      {"sub", 8834},     {"sup", 8835},
    {"nsub", 8836},   {"sube", 8838},   {"supe", 8839},    {"oplus", 8853},   {"otimes", 8855},
    {"perp", 8869},   {"sdot", 8901},   {"lceil", 8968},   {"rceil", 8969},   {"lfloor", 8970},
    {"rfloor", 8971}, {"lang", 9001},   {"rang", 9002},    {"loz", 9674},     {"spades", 9824},
    {"clubs", 9827},  {"hearts", 9829}, {"diams", 9830},
}};

constexpr bool sortedByCode() {
  for (size_t i = 1; i < kEntities.size(); ++i)
    if (kEntities[i - 1].code >= kEntities[i].code) return false;
  return true;
}
static_assert(sortedByCode(), "escaping relies on binary search by code point");

// Longest text between "&" and ";" that can be an entity: "#x" and a few digits, or "thetasym".
constexpr size_t kMaxEntityBody = 10;

const Entity* entityForCode(char32_t code) {
  auto it = std::lower_bound(kEntities.begin(), kEntities.end(), code,
                             [](const Entity& e, char32_t c) { return e.code < c; });
  return it != kEntities.end() && it->code == code ? &*it : nullptr;
}

bool isMarkup(char c) {
  return c == '"' || c == '&' || c == '\'' || c == '<' || c == '>';
}

void appendUtf8(std::string& out, char32_t code) {
  // A lone surrogate has no UTF-8 form.
  if (code >= 0xD800 && code <= 0xDFFF) code = 0xFFFD;
  uint8_t buf[U8_MAX_LENGTH];
  int32_t length = 0;
  U8_APPEND_UNSAFE(buf, length, static_cast<UChar32>(code));  // the buffer fits any code
  out.append(reinterpret_cast<const char*>(buf), static_cast<size_t>(length));
}

// The code of a numeric entity body such as "#65" or "#x41"; 0 when it isn't one in range.
char32_t numericEntity(std::string_view body) {
  if (body.size() < 2 || body[0] != '#') return 0;
  const bool hex = body[1] == 'x' || body[1] == 'X';
  const std::string_view digits = body.substr(hex ? 2 : 1);
  if (digits.empty()) return 0;
  uint32_t value = 0;
  for (char c : digits) {
    int d;
    if (c >= '0' && c <= '9')
      d = c - '0';
    else if (hex && c >= 'a' && c <= 'f')
      d = c - 'a' + 10;
    else if (hex && c >= 'A' && c <= 'F')
      d = c - 'A' + 10;
    else
      return 0;
    value = value * (hex ? 16 : 10) + static_cast<uint32_t>(d);
    if (value > 65534) return 0;
  }
  return value;
}

char32_t namedEntity(std::string_view body) {
  for (const Entity& e : kEntities)
    if (body == e.name) return e.code;
  return 0;
}

}  // namespace

std::string stringByEscapingForHTML(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (isMarkup(c)) {
      out += '&';
      out += entityForCode(static_cast<char32_t>(c))->name;
      out += ';';
    } else {
      out += c;
    }
  }
  return out;
}

std::string stringByEscapingForAsciiHTML(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  const auto* s = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(text.size());
  int32_t i = 0;
  while (i < length) {
    UChar32 c;
    U8_NEXT(s, i, length, c);
    if (c < 0) c = 0xFFFD;
    if (const Entity* e = entityForCode(static_cast<char32_t>(c))) {
      out += '&';
      out += e->name;
      out += ';';
    } else if (c > 127) {
      out += "&#" + std::to_string(c) + ";";
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

std::string stringByUnescapingFromHTML(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    const size_t amp = text.find('&', i);
    if (amp == std::string_view::npos) break;
    out.append(text.substr(i, amp - i));
    const size_t semi = text.substr(amp + 1, kMaxEntityBody + 1).find(';');
    const std::string_view body =
        semi == std::string_view::npos ? std::string_view() : text.substr(amp + 1, semi);
    char32_t code = body.empty() ? 0 : body[0] == '#' ? numericEntity(body) : namedEntity(body);
    if (code) {
      appendUtf8(out, code);
      i = amp + body.size() + 2;
    } else {
      out += '&';
      i = amp + 1;
    }
  }
  if (i < text.size()) out.append(text.substr(i));
  return out;
}

}  // namespace rivo
