// DatePlaceholder.h - which placeholders the time and date formatters fill,
// and how they fill them.
// Part of qvbase, the QVKernel foundation class library.
//
// PTime::Format and PLocalDate::Format share one classification of ^name^
// placeholders: time-span fields (filled by both), numeric date fields and
// fields that need names or locale data (filled by dates only). A name of no
// class stays in the text as it is. Both fill a pattern with one loop,
// FillPlaceholders.
#pragma once

#include <qvbase/PASCIIString.h>
#include <qvbase/PMBString.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace qvbase::time {

enum PlaceholderClass {
  kPlaceholderNone = 0,
  kPlaceholderTimeSpan = 1,
  kPlaceholderDateNumber = 2,
  kPlaceholderDateName = 3,
};

// Only the first character picks the group that is consulted, then the exact
// spelling decides; names starting outside 'H'..'y' are of no class. The T
// group is the exception: it checks the length only, so every two-character
// name starting with T is a time-span field. TD, TH, TM and TS have a value;
// any other (^TX^) is replaced by an empty text rather than left in place.
inline PlaceholderClass ClassifyPlaceholder(const char* name) {
  struct Entry {
    const char* name;
    PlaceholderClass kind;
  };
  static const Entry kEntries[] = {
      {"H", kPlaceholderTimeSpan},    {"HH", kPlaceholderTimeSpan},
      {"m", kPlaceholderTimeSpan},    {"mm", kPlaceholderTimeSpan},
      {"s", kPlaceholderTimeSpan},    {"ss", kPlaceholderTimeSpan},
      {"M", kPlaceholderDateNumber},  {"MM", kPlaceholderDateNumber},
      {"d", kPlaceholderDateNumber},  {"dd", kPlaceholderDateNumber},
      {"h", kPlaceholderDateNumber},  {"hh", kPlaceholderDateNumber},
      {"w", kPlaceholderDateNumber},  {"ww", kPlaceholderDateNumber},
      {"yy", kPlaceholderDateNumber}, {"yyyy", kPlaceholderDateNumber},
      {"yd", kPlaceholderDateNumber}, {"ydd", kPlaceholderDateNumber},
      {"MMM", kPlaceholderDateName},  {"MMMM", kPlaceholderDateName},
      {"ddd", kPlaceholderDateName},  {"dddd", kPlaceholderDateName},
      {"gg", kPlaceholderDateName},   {"t", kPlaceholderDateName},
      {"tt", kPlaceholderDateName},
  };
  if (!name || name[0] < 'H' || name[0] > 'y')
    return kPlaceholderNone;
  if (name[0] == 'T')
    return name[1] != '\0' && name[2] == '\0' ? kPlaceholderTimeSpan : kPlaceholderNone;
  for (const Entry& entry : kEntries)
    if (entry.name[0] == name[0] && std::strcmp(entry.name, name) == 0)
      return entry.kind;
  return kPlaceholderNone;
}

inline std::string DecimalText(std::int64_t value, int width = 0) {
  std::string digits;
  const bool negative = value < 0;
  std::uint64_t magnitude =
      negative ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
  do {
    digits.insert(digits.begin(), static_cast<char>('0' + magnitude % 10));
    magnitude /= 10;
  } while (magnitude);
  while (static_cast<int>(digits.size()) < width)
    digits.insert(digits.begin(), '0');
  return negative ? "-" + digits : digits;
}

// The text of a time-span placeholder for `ticks` (not negative): the fields
// within the day and the totals. Names of other classes give an empty text,
// and so does a T name other than TD, TH, TM and TS.
inline std::string TimeSpanText(std::int64_t ticks, const char* name) {
  const std::int64_t seconds = ticks / 10000000;
  const std::int64_t withinDay = seconds % 86400;
  const std::string n = name ? name : "";
  if (n == "H")
    return DecimalText(withinDay / 3600);
  if (n == "HH")
    return DecimalText(withinDay / 3600, 2);
  if (n == "m")
    return DecimalText(withinDay / 60 % 60);
  if (n == "mm")
    return DecimalText(withinDay / 60 % 60, 2);
  if (n == "s")
    return DecimalText(withinDay % 60);
  if (n == "ss")
    return DecimalText(withinDay % 60, 2);
  if (n == "TD")
    return DecimalText(seconds / 86400);
  if (n == "TH")
    return DecimalText(seconds / 3600);
  if (n == "TM")
    return DecimalText(seconds / 60);
  if (n == "TS")
    return DecimalText(seconds);
  return std::string();
}

// What a formatter makes of one placeholder.
struct PlaceholderValue {
  bool filled = false;   // false: the placeholder stays in the text as it is
  PMBString text;        // the text that replaces it
  bool stepOver = false; // the scan goes on after the text, not at its start
};

// `pattern` with its ^name^ placeholders filled, from the first to the last:
// `valueOf(name, class)` says whether and with what each is replaced. The
// scan goes on from the start of a replacing text (numbers hold no caret)
// unless the formatter asks to step over it (a name from the locale, whose
// caret must never open a placeholder); a placeholder left in place is
// stepped over.
template <typename ValueOf>
PMBString FillPlaceholders(const PMBString& pattern, ValueOf valueOf) {
  PMBString result(static_cast<const char*>(pattern), /*copy=*/true);
  PASCIIString name;
  ULONG length = 0;
  ULONG from = 0;
  for (;;) {
    const ULONG at = result.FindNextParameter(&name, &length, from);
    if (at == kStringNotFound)
      break;
    const PlaceholderValue value = valueOf(name, ClassifyPlaceholder(name));
    if (!value.filled) {
      from = at + length;
      continue;
    }
    result.Delete(at, length);
    if (value.text.IsNotEmpty())
      result.Insert(value.text, at);
    from = value.stepOver ? at + value.text.Len() : at;
  }
  return result;
}

} // namespace qvbase::time
