// The configuration dialect: tokens beside libxml2's pull reader and expat over the same bytes, documents in and out of
// the logger's tree, and how the time grows with documents that mean harm.

#include <expat.h>
#include <libxml/xmlreader.h>

#include <functional>
#include <iostream>
#include <sstream>
#include <string>

#include "bench/setter.h"
#include "bench/turns.h"
#include "config/docmoorlog.h"
#include "config/xml_parser.h"

namespace {

std::string LoggerConfiguration() {
  std::ostringstream out;
  DocMoorlog().configuration(out);
  return out.str();
}

// Copies of the logger's configuration under one root, up to the size.
std::string Repeated(std::size_t size) {
  const std::string one = LoggerConfiguration();
  std::string all = "<root>";
  while (all.size() < size) all += one;
  return all + "</root>";
}

// Each reader visits every token and looks at its text, so that none can leave it out.

std::size_t ReadTokens(const std::string& document) {
  std::istringstream in(document);
  XMLParser parser(in);
  std::size_t size = 0;
  for (auto kind = parser.GetNextToken(); kind != XMLParser::END_DOC; kind = parser.GetNextToken())
    size += parser.GetTokenString().size();
  return size;
}

std::size_t ReadWithLibxml(const std::string& document) {
  xmlTextReader* const reader = xmlReaderForMemory(document.data(), static_cast<int>(document.size()), nullptr, nullptr,
                                                   XML_PARSE_HUGE | XML_PARSE_NONET);
  std::size_t size = 0;
  while (xmlTextReaderRead(reader) == 1) {
    const xmlChar* text = xmlTextReaderConstValue(reader);
    if (text == nullptr) text = xmlTextReaderConstName(reader);
    size += static_cast<std::size_t>(xmlStrlen(text));
  }
  xmlFreeTextReader(reader);
  return size;
}

std::size_t ReadWithExpat(const std::string& document) {
  XML_Parser const parser = XML_ParserCreate(nullptr);
  std::size_t size = 0;
  XML_SetUserData(parser, &size);
  XML_SetElementHandler(
      parser,
      [](void* sum, const XML_Char* name, const XML_Char**) {
        *static_cast<std::size_t*>(sum) += std::string(name).size();
      },
      [](void* sum, const XML_Char* name) { *static_cast<std::size_t*>(sum) += std::string(name).size(); });
  XML_SetCharacterDataHandler(parser, [](void* sum, const XML_Char* text, int length) {
    *static_cast<std::size_t*>(sum) += std::string(text, static_cast<std::size_t>(length)).size();
  });
  XML_Parse(parser, document.data(), static_cast<int>(document.size()), 1);
  XML_ParserFree(parser);
  return size;
}

void Tokenise(benchmark::State& state, const std::string& document) {
  Turns turns({{"own", [&] { benchmark::DoNotOptimize(ReadTokens(document)); }},
               {"xmlTextReader", [&] { benchmark::DoNotOptimize(ReadWithLibxml(document)); }},
               {"expat", [&] { benchmark::DoNotOptimize(ReadWithExpat(document)); }}});
  turns.Measure(state);
  state.counters["MB/s"] = static_cast<double>(document.size()) / turns.Median(0) / 1e6;
}

// Two documents in turn, so that each one changes every value.
void Configure(benchmark::State& state) {
  DocMoorlog tree;
  std::istringstream zones(
      "<tarno><moorlog><cfg><clock><zone>{UTC|Europe/Oslo}</zone></clock></cfg></moorlog></tarno>");
  tree.configure(zones, std::cerr);
  std::string documents[2];
  for (const int turn : {0, 1}) {
    Setter setter(turn);
    tree.do_accept(setter);
    std::ostringstream out;
    tree.configuration(out);
    documents[turn] = out.str();
    state.counters["values"] = setter.count;
  }
  std::ostringstream answers;
  std::size_t next = 0;
  for ([[maybe_unused]] auto _ : state) {
    std::istringstream in(documents[next++ % 2]);
    tree.configure(in, answers);
  }
  if (!answers.str().empty()) state.SkipWithError("a document was answered with an error");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Configure);

void Write(benchmark::State& state) {
  const DocMoorlog tree;
  std::ostringstream out;
  for ([[maybe_unused]] auto _ : state) {
    out.seekp(0);
    tree.configuration(out);
  }
  state.SetBytesProcessed(state.iterations() * out.tellp());
}
BENCHMARK(Write);

std::string Repeat(std::string_view piece, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += piece;
  return all;
}

struct Family {
  const char* name;
  std::function<std::string(int)> make;
};

const Family kHostile[] = {
    {"deep nesting", [](int n) { return "<tarno>" + Repeat("<tarno>", n) + Repeat("</tarno>", n); }},
    {"attributes", [](int n) { return "<tarno><x" + Repeat(" a='1'", n) + "/></tarno>"; }},
    {"unterminated comments", [](int n) { return "<tarno>" + Repeat("<!-- -", n); }},
    {"unterminated entities", [](int n) { return "<tarno><moorlog><ver>" + Repeat("&query", n) + "</ver></moorlog>"; }},
    {"an error in every element", [](int n) { return "<tarno>" + Repeat("<moorlog>< </moorlog>", n) + "</tarno>"; }},
    {"children of one name",
     [](int n) { return "<tarno><moorlog>" + Repeat("<ver>1</ver>", n) + "</moorlog></tarno>"; }},
    {"stray ends", [](int n) { return "<tarno><moorlog>" + Repeat(">", n) + "</moorlog></tarno>"; }},
};

// The time for twice as much over the time for once: 2 when it grows with the size of the document.
void Growth(benchmark::State& state, const Family& family) {
  constexpr int kCount = 10'000;
  const auto send = [](const std::string& document) {
    DocMoorlog tree;
    std::istringstream in(document);
    std::ostringstream out;
    tree.configure(in, out);
  };
  const std::string twice = family.make(2 * kCount), once = family.make(kCount);
  Turns turns({{"2n", [&] { send(twice); }}, {"n", [&] { send(once); }}});
  for ([[maybe_unused]] auto _ : state) state.SetIterationTime(turns.Round());
  state.counters["2n/n"] = turns.Best(0) / turns.Best(1);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string small = LoggerConfiguration(), large = Repeated(4'000'000);
  benchmark::RegisterBenchmark("Tokenise/configuration", [&](benchmark::State& state) {
    Tokenise(state, small);
  })->UseManualTime();
  benchmark::RegisterBenchmark("Tokenise/4MB", [&](benchmark::State& state) {
    Tokenise(state, large);
  })->UseManualTime();
  for (const Family& family : kHostile)
    benchmark::RegisterBenchmark((std::string("Growth/") + family.name).c_str(), [&family](benchmark::State& state) {
      Growth(state, family);
    })->UseManualTime();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
