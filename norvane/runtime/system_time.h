// Wall-clock time broken into fields, a processor-time clock and sleep.
//
// The time of day is read to the microsecond and broken down by the C library, in UTC or in the
// process's local zone (as the C library knows it: the TZ variable, else the system's zone).
// A null record pointer is ignored. The calls keep no state and may be called from any thread.
//
// The two records are fixed layouts that callers rely on. Note that day of month and day of week
// come in opposite orders in them.
#ifndef NORVANE_RUNTIME_SYSTEM_TIME_H_
#define NORVANE_RUNTIME_SYSTEM_TIME_H_

#include <cstddef>
#include <cstdint>

#include "norvane/config.h"

// KD_SystemTimeRec is a broken-down time: the full year (e.g. 2024), month 1-12, day of week
// (0 = Sunday), day of month 1-31, hour 0-23, minute, second and milliseconds 0-999.
struct KD_SystemTimeRec {
  uint16_t wYear;
  uint16_t wMonth;
  uint16_t wDayOfWeek;
  uint16_t wDay;
  uint16_t wHour;
  uint16_t wMinute;
  uint16_t wSecond;
  uint16_t wMilliseconds;
};
static_assert(sizeof(KD_SystemTimeRec) == 16, "system time record layout");
static_assert(offsetof(KD_SystemTimeRec, wDayOfWeek) == 4 && offsetof(KD_SystemTimeRec, wDay) == 6 &&
                  offsetof(KD_SystemTimeRec, wMilliseconds) == 14,
              "system time record layout");

// KD_ZonedTimeRec is a local broken-down time with the zone: the fields of KD_SystemTimeRec with
// day of month before day of week, then the zone's standard offset from UTC as hours (positive
// west of UTC, negative east, truncated towards zero) and minutes (0-59, without sign). India,
// five and a half hours east, is -5 hours and 30 minutes; Newfoundland is 3 hours and 30 minutes.
struct KD_ZonedTimeRec {
  uint16_t wYear;
  uint16_t wMonth;
  uint16_t wDay;
  uint16_t wDayOfWeek;
  uint16_t wHour;
  uint16_t wMinute;
  uint16_t wSecond;
  uint16_t wMilliseconds;
  int32_t tzHour;
  uint16_t tzMinute;
};
static_assert(sizeof(KD_ZonedTimeRec) == 24, "zoned time record layout");
static_assert(offsetof(KD_ZonedTimeRec, wDay) == 4 && offsetof(KD_ZonedTimeRec, wDayOfWeek) == 6 &&
                  offsetof(KD_ZonedTimeRec, wMilliseconds) == 14 && offsetof(KD_ZonedTimeRec, tzHour) == 16 &&
                  offsetof(KD_ZonedTimeRec, tzMinute) == 20,
              "zoned time record layout");

// KD_Time_GetSystemTime fills time with the current UTC time.
NORVANE_API void KD_Time_GetSystemTime(KD_SystemTimeRec* time);
// KD_Time_GetLocalTime fills time with the current local time.
NORVANE_API void KD_Time_GetLocalTime(KD_SystemTimeRec* time);
// KDCRT_GetCurrentSystemTime clears time, then fills it with the current local time and the
// zone's standard offset (the offset outside daylight saving time, also while it is in force).
NORVANE_API void KDCRT_GetCurrentSystemTime(KD_ZonedTimeRec* time);
// KD_Time_GetClock returns the processor time used by the process, in milliseconds.
NORVANE_API size_t KD_Time_GetClock();
// KD_Time_Sleep sleeps for milliseconds * 1000 microseconds, the product taken in 32 bits: from
// 4294968 milliseconds on (about 71 minutes) it wraps, and 4294968 sleeps 704 microseconds.
// Returns 0.
NORVANE_API int KD_Time_Sleep(uint32_t milliseconds);

#endif  // NORVANE_RUNTIME_SYSTEM_TIME_H_
