// StringBench.cpp - short strings copied, appended to, searched, compared
// ignoring case and ordered, against std::string and Qt's QString.
// Part of qvbase, the QVKernel foundation class library.

#include "BenchSupport.h"

#include <qvbase/PASCIIString.h>
#include <qvbase/PString.h>

#include <QString>

#include <strings.h>

#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using qvbench::ScenarioFile;
using qvbench::Sizes;

// N short strings (about 40 characters, 7-bit), as an application holds
// names and labels: "record-004711 quick brown fox jumps over".

std::vector<std::string> Records(int n) {
  std::vector<std::string> records;
  records.reserve(static_cast<size_t>(n));
  char text[64];
  for (int i = 0; i < n; ++i) {
    std::snprintf(text, sizeof text, "record-%06d quick brown fox jumps over",
                  (i * 7919) % 1000003);
    records.emplace_back(text);
  }
  return records;
}

std::string Upper(std::string s) {
  for (auto& c : s)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

template <typename Text>
std::vector<Text> Texts(const std::vector<std::string>& records) {
  std::vector<Text> texts;
  texts.reserve(records.size());
  for (const auto& r : records)
    texts.emplace_back(r.c_str(), true);
  return texts;
}

std::vector<QString> QTexts(const std::vector<std::string>& records) {
  std::vector<QString> texts;
  texts.reserve(records.size());
  for (const auto& r : records)
    texts.push_back(QString::fromStdString(r));
  return texts;
}

std::vector<std::string> Uppers(const std::vector<std::string>& records) {
  std::vector<std::string> uppers;
  for (const auto& r : records)
    uppers.push_back(Upper(r));
  return uppers;
}

// copy: a copy of the whole array, every string copy-constructed (qvbase and
// Qt share the text, std copies the bytes).
template <typename Text>
void StrCopyQvbase(benchmark::State& state) {
  const auto texts = Texts<Text>(Records(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    std::vector<Text> copies(texts);
    benchmark::DoNotOptimize(copies.data());
  }
}
void StrCopyStd(benchmark::State& state) {
  const auto texts = Records(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::vector<std::string> copies(texts);
    benchmark::DoNotOptimize(copies.data());
  }
}
void StrCopyQt(benchmark::State& state) {
  const auto texts = QTexts(Records(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    std::vector<QString> copies(texts);
    benchmark::DoNotOptimize(copies.data());
  }
}

// append: a copy of every string with a suffix appended.
template <typename Text>
void StrAppendQvbase(benchmark::State& state) {
  const auto texts = Texts<Text>(Records(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    ULONG total = 0;
    for (const auto& t : texts) {
      Text s = t;
      s += " the lazy dog";
      total += s.Len();
    }
    benchmark::DoNotOptimize(total);
  }
}
void StrAppendStd(benchmark::State& state) {
  const auto texts = Records(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    size_t total = 0;
    for (const auto& t : texts) {
      std::string s = t;
      s += " the lazy dog";
      total += s.size();
    }
    benchmark::DoNotOptimize(total);
  }
}
void StrAppendQt(benchmark::State& state) {
  const auto texts = QTexts(Records(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    int total = 0;
    for (const auto& t : texts) {
      QString s = t;
      s += QLatin1String(" the lazy dog");
      total += s.size();
    }
    benchmark::DoNotOptimize(total);
  }
}

// find: a word near the end of every string.
template <typename Text>
void StrFindQvbase(benchmark::State& state) {
  const auto texts = Texts<Text>(Records(static_cast<int>(state.range(0))));
  const Text word("over", true);
  for (auto _ : state) {
    ULONG total = 0;
    for (const auto& t : texts)
      total += t.FindForward(word, 0, kStrCompExact);
    benchmark::DoNotOptimize(total);
  }
}
void StrFindStd(benchmark::State& state) {
  const auto texts = Records(static_cast<int>(state.range(0)));
  const std::string word("over");
  for (auto _ : state) {
    size_t total = 0;
    for (const auto& t : texts)
      total += t.find(word);
    benchmark::DoNotOptimize(total);
  }
}
void StrFindQt(benchmark::State& state) {
  const auto texts = QTexts(Records(static_cast<int>(state.range(0))));
  const QString word = QStringLiteral("over");
  for (auto _ : state) {
    int total = 0;
    for (const auto& t : texts)
      total += t.indexOf(word);
    benchmark::DoNotOptimize(total);
  }
}

// nocase: every string against its upper-case form, ignoring case.
template <typename Text>
void StrNoCaseQvbase(benchmark::State& state) {
  const auto records = Records(static_cast<int>(state.range(0)));
  const auto a = Texts<Text>(records), b = Texts<Text>(Uppers(records));
  for (auto _ : state) {
    LONG equal = 0;
    for (size_t i = 0; i < a.size(); ++i)
      equal += a[i].CompareTo(b[i], kStrCompIgnoreCase) == 0;
    benchmark::DoNotOptimize(equal);
  }
}
void StrNoCaseStd(benchmark::State& state) {
  const auto a = Records(static_cast<int>(state.range(0)));
  const auto b = Uppers(a);
  for (auto _ : state) {
    int equal = 0;
    for (size_t i = 0; i < a.size(); ++i)
      equal += strcasecmp(a[i].c_str(), b[i].c_str()) == 0;
    benchmark::DoNotOptimize(equal);
  }
}
void StrNoCaseQt(benchmark::State& state) {
  const auto records = Records(static_cast<int>(state.range(0)));
  const auto a = QTexts(records), b = QTexts(Uppers(records));
  for (auto _ : state) {
    int equal = 0;
    for (size_t i = 0; i < a.size(); ++i)
      equal += a[i].compare(b[i], Qt::CaseInsensitive) == 0;
    benchmark::DoNotOptimize(equal);
  }
}

// order: every string against the next one with operator<.
template <typename Text>
void StrOrderQvbase(benchmark::State& state) {
  const auto texts = Texts<Text>(Records(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    int less = 0;
    for (size_t i = 1; i < texts.size(); ++i)
      less += texts[i - 1] < texts[i];
    benchmark::DoNotOptimize(less);
  }
}
void StrOrderStd(benchmark::State& state) {
  const auto texts = Records(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    int less = 0;
    for (size_t i = 1; i < texts.size(); ++i)
      less += texts[i - 1] < texts[i];
    benchmark::DoNotOptimize(less);
  }
}
void StrOrderQt(benchmark::State& state) {
  const auto texts = QTexts(Records(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    int less = 0;
    for (size_t i = 1; i < texts.size(); ++i)
      less += texts[i - 1] < texts[i];
    benchmark::DoNotOptimize(less);
  }
}

void Register() {
  using benchmark::RegisterBenchmark;
  const auto strings = [](benchmark::internal::Benchmark* b) { Sizes(b, 1000, 100000); };
  strings(RegisterBenchmark("str_copy/qvbase", StrCopyQvbase<PString>));
  strings(RegisterBenchmark("str_copy/qvbase_ascii", StrCopyQvbase<PASCIIString>));
  strings(RegisterBenchmark("str_copy/std", StrCopyStd));
  strings(RegisterBenchmark("str_copy/qt", StrCopyQt));
  strings(RegisterBenchmark("str_append/qvbase", StrAppendQvbase<PString>));
  strings(RegisterBenchmark("str_append/qvbase_ascii", StrAppendQvbase<PASCIIString>));
  strings(RegisterBenchmark("str_append/std", StrAppendStd));
  strings(RegisterBenchmark("str_append/qt", StrAppendQt));
  strings(RegisterBenchmark("str_find/qvbase", StrFindQvbase<PString>));
  strings(RegisterBenchmark("str_find/qvbase_ascii", StrFindQvbase<PASCIIString>));
  strings(RegisterBenchmark("str_find/std", StrFindStd));
  strings(RegisterBenchmark("str_find/qt", StrFindQt));
  strings(RegisterBenchmark("str_nocase/qvbase", StrNoCaseQvbase<PString>));
  strings(RegisterBenchmark("str_nocase/qvbase_ascii", StrNoCaseQvbase<PASCIIString>));
  strings(RegisterBenchmark("str_nocase/std", StrNoCaseStd));
  strings(RegisterBenchmark("str_nocase/qt", StrNoCaseQt));
  strings(RegisterBenchmark("str_order/qvbase", StrOrderQvbase<PString>));
  strings(RegisterBenchmark("str_order/qvbase_ascii", StrOrderQvbase<PASCIIString>));
  strings(RegisterBenchmark("str_order/std", StrOrderStd));
  strings(RegisterBenchmark("str_order/qt", StrOrderQt));
}

const ScenarioFile kStrings(/*rank=*/40, Register);

} // namespace
