// The local calendar of a moment, by the zone in force now: a station's zone may be changed while it runs, and
// localtime_r(3) alone needn't notice.

#pragma once

#include <ctime>

// With its distance to UTC (tm_gmtoff, seconds, east is positive); all zero where the calendar doesn't reach. Reads the
// environment's TZ and, without one, asks the disk for /etc/localtime.
tm LocalTime(time_t moment);
