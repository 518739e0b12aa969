#include "runtime/timestamp.h"

#include <sys/time.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>
#include <string_view>

#include "runtime/errnoexcept.h"
#include "runtime/numbertext.h"
#include "runtime/readahead.h"

int Timestamp::_xalloc_index = -1;
bool Timestamp::_is_tz_inited = false;
int Timestamp::_tz_offset = 0;
const char* Timestamp::_tz_name = "";

// --- calendar ---

namespace {

constexpr int kEpochYear = 1989;
constexpr int kLastYear = 2099;
constexpr uint32_t kDaysInCycle = 1461;  // three years of 365 days, then one of 366

// Day of the year on which each month starts, and the year's length; the second row is the leap year's.
constexpr int YDays[2][13] = {{0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
                              {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366}};

// A double beyond these bounds has no int64_t.
constexpr double kInt64Bound = 9223372036854775808.0;

uint32_t WholeSeconds(double seconds) {
  if (!(seconds > -kInt64Bound && seconds < kInt64Bound)) return 0;
  return static_cast<uint32_t>(static_cast<int64_t>(seconds));
}

uint32_t WholeDays(double seconds) {
  return WholeSeconds(seconds) / 86400;
}
int HourOf(uint32_t seconds) {
  return static_cast<int>(seconds / 3600 % 24);
}
int MinuteOf(uint32_t seconds) {
  return static_cast<int>(seconds / 60 % 60);
}
double SecondOf(double value, uint32_t seconds) {
  const uint32_t minutes = seconds / 60;
  return value - minutes * 60;
}

struct YearAndDay {
  explicit YearAndDay(uint32_t days) {
    const uint32_t rest = days % kDaysInCycle;
    const bool last_day = rest == kDaysInCycle - 1;  // day 366 of the leap year
    year = kEpochYear + static_cast<int>(4 * (days / kDaysInCycle) + (last_day ? 3 : rest / 365));
    day = last_day ? 365 : static_cast<int>(rest % 365);
    leap = rest >= 3 * 365;
  }
  int year;
  int day;  // of the year, from 0
  bool leap;
};

struct Date {
  explicit Date(uint32_t days) : Date(YearAndDay(days)) {}
  explicit Date(const YearAndDay& in) : year(in.year), month(12) {
    const int* starts = YDays[in.leap ? 1 : 0];
    while (starts[month - 1] > in.day) --month;
    day = in.day + 1 - starts[month - 1];
  }
  int year, month, day;
};

}  // namespace

Timestamp::Timestamp(int year, int month, int day, int hour, int min, double sec) : _seconds(0) {
  if (year < 100) year += year < 89 ? 2000 : 1900;
  const int64_t months = int64_t{month} - 1;
  const int64_t carry = (months < 0 ? months - 11 : months) / 12;  // months before January borrow from the year
  const int64_t y = year + carry - kEpochYear;
  if (y < 0 || y > kLastYear - kEpochYear) return;
  const int64_t days = 365 * y + y / 4 + YDays[y % 4 == 3 ? 1 : 0][months - 12 * carry] + (int64_t{day} - 1);
  _seconds = static_cast<double>(days) * 86400 + (min * 60.0 + sec) + hour * 3600.0;
}

int Timestamp::year() const {
  return YearAndDay(WholeDays(_seconds)).year;
}
int Timestamp::month() const {
  return Date(WholeDays(_seconds)).month;
}
int Timestamp::day() const {
  return Date(WholeDays(_seconds)).day;
}
int Timestamp::yearDay() const {
  return YearAndDay(WholeDays(_seconds)).day + 1;
}
int Timestamp::weekDay() const {
  return static_cast<int>(WholeDays(_seconds) % 7) + 1;
}
bool Timestamp::isLeap() const {
  return YearAndDay(WholeDays(_seconds)).leap;
}
int Timestamp::hour() const {
  return HourOf(WholeSeconds(_seconds));
}
int Timestamp::min() const {
  return MinuteOf(WholeSeconds(_seconds));
}
double Timestamp::sec() const {
  return SecondOf(_seconds, WholeSeconds(_seconds));
}

// --- local time ---

void Timestamp::_init_tz() {
  if (_is_tz_inited) return;
  const time_t now = time(nullptr);
  const tm* local = localtime(&now);
  _tz_offset = static_cast<int>(local->tm_gmtoff);
  _tz_name = local->tm_zone;
  _is_tz_inited = true;
}

std::string Timestamp::local_timezone_name() {
  _init_tz();
  return _tz_name;
}

void Timestamp::convert_local_to_utc() {
  _init_tz();
  _seconds -= _tz_offset;
}

void Timestamp::convert_utc_to_local() {
  _init_tz();
  _seconds += _tz_offset;
}

void Timestamp::assign_local_time() {
  timeval now{};
  if (gettimeofday(&now, nullptr) != 0) throw ErrnoError("Unable to get current time");
  const time_t seconds = now.tv_sec;
  const tm* local = localtime(&seconds);
  *this =
      Timestamp(local->tm_year + 1900, local->tm_mon + 1, local->tm_mday, local->tm_hour, local->tm_min, local->tm_sec);
  _seconds += static_cast<double>(now.tv_usec) / 1000000.0;
}

// --- the form of a stream ---

namespace {

constexpr long kSeparatorsSet = 1L << 24;
constexpr long kQuoted = 1L << 25;

long Byte(char c) {
  return static_cast<unsigned char>(c);
}

}  // namespace

struct Timestamp::_Form {
  char date = '-';
  char datetime = ' ';
  char time = ':';
  bool quoted = false;
  bool is_default = true;
};

long& Timestamp::_form_word(std::ios_base& stream) {
  if (_xalloc_index < 0) _xalloc_index = std::ios_base::xalloc();
  return stream.iword(_xalloc_index);
}

Timestamp::_Form Timestamp::_form(std::ios_base& stream) {
  const long word = _form_word(stream);
  _Form form;
  form.is_default = word == 0;
  if ((word & kSeparatorsSet) != 0) {
    form.time = static_cast<char>(word & 0xFF);
    form.date = static_cast<char>(word >> 8 & 0xFF);
    form.datetime = static_cast<char>(word >> 16 & 0xFF);
  }
  form.quoted = (word & kQuoted) != 0;
  return form;
}

void Timestamp::set_separators(std::ios_base& stream, char date, char datetime, char time) {
  _form_word(stream) = Byte(time) | Byte(date) << 8 | Byte(datetime) << 16 | kSeparatorsSet;
}

void Timestamp::set_quoted(std::ios_base& stream) {
  _form_word(stream) |= kQuoted;
}

// --- reading ---

namespace {

struct Fields {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int min = 0;
  double sec = 0;
};

bool IsDigit(int c) {
  return c >= '0' && c <= '9';
}

// Reads the default form with all digits in place straight from the stream's buffer, which is many times faster than
// the extraction of each field. False, with nothing taken but white space, when the text is not of that kind or may
// not be all in the buffer.
bool ReadInPlace(std::istream& in, Fields& fields) {
  if ((in.flags() & std::ios_base::basefield) != std::ios_base::dec || in.exceptions() != std::ios_base::goodbit ||
      in.getloc() != std::locale::classic())
    return false;
  const std::istream::sentry ready(in);
  if (!ready) return false;
  std::streambuf& buffer = *in.rdbuf();
  const std::string_view text = ReadAhead::Of(buffer);
  constexpr std::string_view kUpToSeconds = "YYYY-MM-DD HH:MM:";
  if (text.size() <= kUpToSeconds.size()) return false;
  bool fits =
      text[4] == '-' && text[7] == '-' && text[10] == ' ' && text[13] == ':' && text[16] == ':' && IsDigit(text[17]);
  const auto two = [&text, &fits](size_t at) {
    fits = fits && IsDigit(text[at]) && IsDigit(text[at + 1]);
    return (text[at] - '0') * 10 + (text[at + 1] - '0');
  };
  const Fields read{two(0) * 100 + two(2), two(5), two(8), two(11), two(14), 0};
  if (!fits) return false;
  fields = read;
  ReadAhead::Skip(buffer, static_cast<int>(kUpToSeconds.size()));
  try {
    bool failed = false;  // what becomes of the seconds doesn't matter any more
    fields.sec = TakeDouble(buffer, failed);
  } catch (...) {  // the buffer threw: a stream that has no exceptions keeps that to itself
  }
  return true;
}

// Takes the next character that is no white space; another one than expected stays unread, and the stream has failed.
bool TakeSeparator(std::istream& in, char expected) {
  char c = 0;
  if (!(in >> c)) return false;
  if (c == expected) return true;
  in.putback(c);
  in.setstate(std::ios_base::failbit);
  return false;
}

// A double quote where one may stand.
void TakeQuote(std::istream& in) {
  char c = 0;
  if (in >> c && c != '"') in.putback(c);
}

int TruncateToInt(double value) {
  return static_cast<int>(std::clamp<double>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

// A date is there or the stream has failed.
void ReadDate(std::istream& in, char separator, Fields& fields) {
  if (separator != 0) {
    in >> fields.year;
    if (!TakeSeparator(in, separator)) return;
    in >> fields.month;
    if (!TakeSeparator(in, separator)) return;
    in >> fields.day;
  } else {
    int date = 0;
    in >> date;
    fields.year = date / 10000;
    fields.month = date / 100 % 100;
    fields.day = date % 100;
  }
}

// A failure only stops the reading: the fields that were read count.
void ReadTime(std::istream& in, char datetime_separator, char separator, Fields& fields) {
  char c = 0;
  if (datetime_separator != 0 && in.get(c) && c != datetime_separator) {
    in.putback(c);
    in.setstate(std::ios_base::failbit);
  }
  if (separator != 0) {
    in >> fields.hour >> c >> fields.min >> c >> fields.sec;  // any character separates times, meant so
    return;
  }
  double time = 0;
  if (!(in >> time)) return;
  const int minutes = TruncateToInt(time) / 100;  // with the hours in front, in decimals
  fields.hour = minutes / 100;
  fields.min = minutes % 100;
  fields.sec = time - minutes * 100.0;
}

}  // namespace

std::istream& Timestamp::_read(std::istream& in) {
  const _Form form = _form(in);
  Fields fields;
  if (!form.is_default || !ReadInPlace(in, fields)) {
    if (form.quoted) TakeQuote(in);
    ReadDate(in, form.date, fields);
    if (!in) return in;
    ReadTime(in, form.datetime, form.time, fields);
    if (form.quoted) TakeQuote(in);
  }
  in.clear();
  *this = Timestamp(fields.year, fields.month, fields.day, fields.hour, fields.min, fields.sec);
  return in;
}

// --- writing ---

namespace {

// The fields written through the stream, for streams with formatting of their own.
struct StreamSink {
  std::ostream& out;

  void Put(char c) { out << c; }
  void Number(int width, int value) { out << std::setfill('0') << std::setw(width) << value; }
  void Seconds(double value) {
    out.fill(' ');
    if (value < 10) out << '0';
    out << value;
  }
};

// The same text composed first, for streams that format plainly, which is nearly always: several times faster.
class TextSink {
 public:
  explicit TextSink(const std::ostream& out) : _precision(static_cast<int>(out.precision())) {}

  // Whether to_chars writes numbers as the stream would. Both digits of a whole second need a precision of 2.
  static bool Fits(const std::ostream& out) {
    constexpr auto kFormatting = std::ios_base::basefield | std::ios_base::floatfield | std::ios_base::adjustfield |
                                 std::ios_base::showpos | std::ios_base::showpoint | std::ios_base::uppercase;
    return (out.flags() & kFormatting) == std::ios_base::dec && out.precision() >= 2 && out.precision() <= 17 &&
           out.good() && out.getloc() == std::locale::classic();
  }

  void Put(char c) { *_end++ = c; }
  void Number(int width, int value) {
    for (int i = width; i-- > 0; value /= 10) _end[i] = static_cast<char>('0' + value % 10);
    _end += width;
  }
  void Seconds(double value) {
    if (value < 10) Put('0');
    if (!_PutRounded(value))
      _end = std::to_chars(_end, std::end(_text), value, std::chars_format::general, _precision).ptr;
  }

  void WriteTo(std::ostream& out) const {
    out.fill(' ');
    out.width(0);
    out.write(_text, _end - _text);
  }

 private:
  // A value of 1 to 60 as its nearest multiple of the last digit, unless it lies so close to the middle of two that
  // scaling could decide.
  bool _PutRounded(double value) {
    if (!(value >= 1 && value < 60) || _precision > 9) return false;
    int decimals = _precision - (value < 10 ? 1 : 2);
    const double scaled = value * kPowersOfTen[decimals];
    auto digits = static_cast<uint32_t>(scaled);
    const double rest = scaled - digits;
    if (std::abs(rest - 0.5) < 0.001) return false;
    if (rest > 0.5) ++digits;
    while (decimals > 0 && digits % 10 == 0) {
      digits /= 10;
      --decimals;
    }
    const auto unit = static_cast<uint32_t>(kPowersOfTen[decimals]);
    const auto whole = static_cast<int>(digits / unit);
    Number(whole < 10 ? 1 : 2, whole);
    if (decimals == 0) return true;
    Put('.');
    Number(decimals, static_cast<int>(digits % unit));
    return true;
  }

  static constexpr double kPowersOfTen[] = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8};

  const int _precision;
  char _text[64];  // at most 20 characters before the seconds, and 25 of them
  char* _end = _text;
};

}  // namespace

std::ostream& Timestamp::_write(std::ostream& out) const {
  const _Form form = _form(out);
  const auto fields = [&form, value = _seconds](auto& sink) {
    const uint32_t seconds = WholeSeconds(value);
    const Date date(seconds / 86400);
    sink.Number(4, date.year);
    if (form.date != 0) sink.Put(form.date);
    sink.Number(2, date.month);
    if (form.date != 0) sink.Put(form.date);
    sink.Number(2, date.day);
    if (form.datetime != 0) sink.Put(form.datetime);
    sink.Number(2, HourOf(seconds));
    if (form.time != 0) sink.Put(form.time);
    sink.Number(2, MinuteOf(seconds));
    if (form.time != 0) sink.Put(form.time);
    sink.Seconds(SecondOf(value, seconds));
  };
  if (form.quoted) out << '"';
  if (TextSink::Fits(out)) {
    TextSink sink(out);
    fields(sink);
    sink.WriteTo(out);
  } else {
    StreamSink sink{out};
    fields(sink);
  }
  if (form.quoted) out << '"';
  return out;
}
