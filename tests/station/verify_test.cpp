#include "station/verify.h"

#include <gtest/gtest.h>

#include "runtime/datachecksum.h"
#include "station/dataline.h"

namespace {

std::string Sum(std::string line) {
  AppendCheckSum(line);
  return line;
}

// Fed in pieces of that many bytes.
std::string Found(const std::string& text, size_t piece, double gap = 0) {
  std::string found;
  Verifier verifier(gap,
                    [&](int64_t line, const std::string& what) { found += std::to_string(line) + ": " + what + '\n'; });
  for (size_t at = 0; at < text.size(); at += piece) verifier.Feed(std::string_view(text).substr(at, piece));
  verifier.End();
  return found;
}

const std::string kHead =
    "Model:\tGPS Logger\nFile Type:\t2\nInstrument:\tx\nSerial Number:\t\nSoftware Version:\t\nTimestamp:\t2024-05-01 "
    "12:30:00\nTimezone:\tUTC\n";
const std::string kColumns = "DATAH\tSECONDS\tNANOSECONDS\tCH4\tCHK\n";
const std::string kFirst = Sum("DATA\t100\t0\t1\t"), kSecond = Sum("DATA\t100\t500000000\t1\t");

TEST(Verifier, FindsWhatIsWrongAndNothingElse) {
  const std::string good = kHead + kColumns + kFirst;
  const std::pair<std::string, std::string> rows[] = {
      {good + kSecond, ""},
      {good + kHead + kColumns + kSecond, ""},
      {"DATAH\tSECONDS\tNANOSECONDS\tDATE\tA\tCHK\nDATAU\tseconds\tnanoseconds\tdate\tm\tCHK\n" +
           Sum("DATA\t100\t0\t1970-01-01\tnan\t"),
       ""},
      {DataLineHeader("SONIC", {"U"}) + Sum("SONIC\t1\t2\t3\t0\t"), ""},
      {"DATAH\tMSEC\tCHK\n" + Sum("DATA\t5\t") + Sum("DATA\t4\t"), ""},
      {"", "1: the file is empty\n"},
      {kFirst, "1: no header stands in front of it\n"},
      {"DATAH\tA\nDATAU\ta\tCHK\n", "1: no header stands in front of it\n2: no header stands in front of it\n"},
      {good + "DATA\t100\t0\t1\t  0\n", "10: the sum is wrong\n"},
      {good + Sum("DATA\t100\t0\t1"), "10: the sum is wrong\n"},
      {good + Sum("DATA\t100\t0\t"), "10: 3 columns, where the header has 4\n"},
      {good + Sum("DATA\t100\t0\t1\t1\t"), "10: 5 columns, where the header has 4\n"},
      {good + kSecond + kFirst, "11: the time goes back by 0.500 s\n"},
      {good + Sum("DATA\t102\t0\t1\t") + Sum("DATA\t105\t1\t1\t"), "11: a gap of 3.000 s stands in front of it\n"},
      {good + "nonsense\n" + kSecond, "10: that is no line of a data file\n"},
      {good + "SONICU\ts\tns\t\tCHK\n", "10: that is no line of a data file\n"},
      {good + "DATA\t10" + kHead + kColumns + kSecond, "10: the sum is wrong\n"},
      {kHead + "DATAH\tSECO" + kHead + kColumns + kSecond, "8: the line is cut off, and a head follows in it\n"},
      {good + "DATA\t10", "10: the line is cut off\n"},
      {"DATAH\tA\tB\tCHK\nDATAU\ta\tCHK\n", "2: there are not as many units as names\n"},
  };
  for (const auto& [text, found] : rows)
    for (const size_t piece : {1, 7, 1000}) EXPECT_EQ(Found(text, piece, 3), found) << text;
  for (const char* time : {"x\t0", "1x\t0", "-1\t0", "4294967296\t0", "1\tx", "1\t-1", "1\t1000000000"})
    EXPECT_EQ(Found(good + Sum(std::string("DATA\t") + time + "\t1\t"), 1000), "10: the time can't be read\n") << time;
}

}  // namespace
