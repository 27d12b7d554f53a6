#pragma once
// ICU text helpers shared by the template engine, furigana and the LaTeX step: conversion to
// and from UTF-16, pattern compilation, and replacements that stay linear in the text's length.

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace rivo::icutext {

icu::UnicodeString utf16(std::string_view text);
std::string utf8(const icu::UnicodeString& text);

// Whether `text` is well-formed UTF-8: text from outside is checked with it where it enters.
bool isValidUtf8(std::string_view text);

// Raises std::runtime_error when the source does not compile: built-in patterns never fail,
// and the template engine turns a failure of a user's delimiter into its error text.
std::unique_ptr<icu::RegexPattern> compile(const icu::UnicodeString& source, uint32_t flags = 0);

// A matcher on `text`, which must outlive it. Raises std::runtime_error on failure.
std::unique_ptr<icu::RegexMatcher> matcher(const icu::RegexPattern& pattern,
                                           const icu::UnicodeString& text);

// Every occurrence of `from` (non-empty) replaced by `to`, left to right, in one pass. Raises
// std::length_error as soon as the result would pass `maxLength` units.
icu::UnicodeString replaceLiteral(const icu::UnicodeString& text, const icu::UnicodeString& from,
                                  const icu::UnicodeString& to, int32_t maxLength = INT32_MAX);

// Every match replaced by `replacement`, which may name captures as "$1".
icu::UnicodeString replaceAll(const icu::RegexPattern& pattern, const icu::UnicodeString& text,
                              const icu::UnicodeString& replacement);

// Takes the matches of `pattern` in `text` in order, and for each replaces every occurrence of
// its matched text, as plain text, by `replacement` of that match. Done naively that is one
// pass over the text per match; it is done in one pass unless some match holds `opener` (the
// literal every match starts with) after its first character, the only way a matched text can
// also occur where the pattern did not match it.
icu::UnicodeString replaceMatchesEverywhere(
    const icu::RegexPattern& pattern, const icu::UnicodeString& text,
    const icu::UnicodeString& opener, bool openerIgnoresCase,
    const std::function<icu::UnicodeString(const icu::RegexMatcher&)>& replacement);

// Zs and tab; with `newlines`, also Zl, Zp, U+000A to U+000D and U+0085.
icu::UnicodeString trimWhitespace(const icu::UnicodeString& text, bool newlines = false);

}  // namespace rivo::icutext
