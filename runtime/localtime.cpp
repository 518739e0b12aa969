#include "runtime/localtime.h"

tm LocalTime(time_t moment) {
  tzset();
  tm local{};
  return localtime_r(&moment, &local) != nullptr ? local : tm{};
}
