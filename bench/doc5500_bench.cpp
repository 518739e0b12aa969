// The analyser's document: one that changes every value, through configure_and_send_events with a listener, beside
// XMLParser alone over the same text; and what many of them leave in memory.
//
//   documents/s  of ours
//   own/tokens   our time divided by the parser's
//   values       that each document changes
//   growth       bytes of the heap, after as many documents as --benchmark_min_time asks for

#include <malloc.h>

#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include "bench/setter.h"
#include "bench/turns.h"
#include "config/doc5500.h"
#include "config/xml_parser.h"

namespace {

constexpr const char* kZones =
    "<tarno><tn5500><cfg><clock><zone>{UTC|Europe/Oslo}</zone></clock></cfg></tn5500></tarno>";

struct Counter : Doc5500::Listener {
  void GotTopHeaterConfig(int power, Control, float, int, int) override { told += power + 1; }
  void GotAuxConfig(int number, AuxType, float, float, float, float) override { told += number; }
  void StaticConfigChanged() override { ++told; }
  int64_t told = 0;
};

// Two documents in turn, so that each one changes every value.
class Job {
 public:
  Job() {
    setenv("TZ", "UTC0", 1);
    std::istringstream zones(kZones);
    _tree.configure(zones, std::cerr);
    for (int i = 0; i < 2; ++i) _tree.tn5500.cal.history.add(*new ConfigCalRecord(60 * i, "CH4 Zero", 0, 1));
    for (const int turn : {0, 1}) {
      Setter setter(turn);
      _tree.do_accept(setter);
      std::ostringstream out;
      Configurable::set_compact(out, true);
      _tree.configuration(out);
      _documents[turn] = out.str();
      values = setter.count;
    }
    _tree.RegisterListener(&_counter);
  }

  void Apply() {
    std::istringstream in(_documents[_next++ % 2]);
    _tree.configure_and_send_events(in, _answers);
    _tree._set_changed(false);
  }

  void Tokenise() {
    std::istringstream in(_documents[_next++ % 2]);
    XMLParser parser(in);
    while (parser.GetNextToken() != XMLParser::END_DOC) benchmark::DoNotOptimize(parser.GetTokenString().size());
  }

  bool IsSilent() const { return _answers.str().empty() && _counter.told > 0; }

  int values = 0;

 private:
  Doc5500 _tree;
  Counter _counter;
  std::string _documents[2];
  std::ostringstream _answers;
  size_t _next = 0;
};

void BM_Configure(benchmark::State& state) {
  Job job;
  Turns turns({{"own", [&] { job.Apply(); }}, {"tokens", [&] { job.Tokenise(); }}});
  turns.Measure(state);
  if (!job.IsSilent()) state.SkipWithError("a document was answered with an error");
  state.counters["documents/s"] = 1 / turns.Median(0);
  state.counters["values"] = job.values;
}
BENCHMARK(BM_Configure)->UseManualTime();

void BM_Flat(benchmark::State& state) {
  Job job;
  for (int i = 0; i < 100; ++i) job.Apply();
  const size_t before = mallinfo2().uordblks;
  for ([[maybe_unused]] auto _ : state) job.Apply();
  state.counters["growth"] = static_cast<double>(mallinfo2().uordblks) - static_cast<double>(before);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Flat);

}  // namespace

BENCHMARK_MAIN();
