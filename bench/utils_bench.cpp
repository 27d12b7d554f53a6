// Field-cache work in bulk: visible text and checksum of typical note fields.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "librivo/Checksum.h"
#include "librivo/FieldText.h"

namespace {

const std::vector<std::string>& sampleFields() {
  static const std::vector<std::string> fields = [] {
    const char* words[] = {"der",          "Hund", "läuft",    "schnell", "über", "die",  "Straße",
                           "mitochondria", "ATP",  "synthase", "国",      "語",   "café", "river"};
    std::mt19937 gen(7);
    auto word = [&] { return std::string(words[gen() % std::size(words)]); };
    auto phrase = [&](int n) {
      std::string s;
      for (int i = 0; i < n; ++i) s += (i ? " " : "") + word();
      return s;
    };
    std::vector<std::string> out;
    out.reserve(100000);
    for (int i = 0; i < 100000; ++i) {
      switch (i % 10) {
        case 0:
        case 1:
        case 2:
        case 3:
          out.push_back(phrase(1 + static_cast<int>(gen() % 6)));
          break;
        case 4:
          out.push_back("<b>" + word() + "</b> " + phrase(4));
          break;
        case 5:
          out.push_back("<div>" + phrase(5) + "</div><div>" + phrase(3) + "<br></div>");
          break;
        case 6:
          out.push_back("<img src=\"img" + std::to_string(i) + ".jpg\">");
          break;
        case 7:
          out.push_back(phrase(2) + " [sound:rec" + std::to_string(i) + ".mp3]");
          break;
        case 8:
          out.push_back(phrase(3) + " &amp; " + phrase(2) + "&nbsp;<i>" + word() + "</i>");
          break;
        default:
          out.push_back("<span style=\"color: rgb(0, 0, 255);\">" + phrase(8) +
                        "</span><br /><ul><li>" + phrase(4) + "</li></ul>");
      }
    }
    return out;
  }();
  return fields;
}

void BM_StripHtmlAndFieldChecksum(benchmark::State& state) {
  const auto& fields = sampleFields();
  for (auto _ : state) {
    for (const std::string& f : fields) {
      benchmark::DoNotOptimize(rivo::stripHTML(f));
      benchmark::DoNotOptimize(rivo::fieldChecksum(f));
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(fields.size()));
}
BENCHMARK(BM_StripHtmlAndFieldChecksum)->Unit(benchmark::kMillisecond);

// The floor: hashing the raw text alone.
void BM_Sha1OfRawFields(benchmark::State& state) {
  const auto& fields = sampleFields();
  for (auto _ : state) {
    for (const std::string& f : fields) benchmark::DoNotOptimize(rivo::checksum(f));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(fields.size()));
}
BENCHMARK(BM_Sha1OfRawFields)->Unit(benchmark::kMillisecond);

}  // namespace
