// The time calls: the only code of the library that reads the clock, the zone or sleeps.
#include <sys/time.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "norvane/runtime/system_time.h"

namespace {

static_assert(CLOCKS_PER_SEC == 1000000, "clock() counts microseconds");

// Breaks the current time of day down in UTC or local time; milliseconds go to *ms.
void BreakDownNow(bool local, struct tm* fields, uint16_t* ms) {
  struct timeval now;
  gettimeofday(&now, nullptr);
  const time_t seconds = now.tv_sec;
  if (local) {
    // localtime_r need not notice a changed TZ by itself; tzset makes it read the zone afresh.
    tzset();
    localtime_r(&seconds, fields);
  } else {
    gmtime_r(&seconds, fields);
  }
  *ms = static_cast<uint16_t>(now.tv_usec / 1000);
}

void Fill(bool local, KD_SystemTimeRec* time) {
  struct tm t;
  uint16_t ms;
  BreakDownNow(local, &t, &ms);
  time->wYear = static_cast<uint16_t>(t.tm_year + 1900);
  time->wMonth = static_cast<uint16_t>(t.tm_mon + 1);
  time->wDayOfWeek = static_cast<uint16_t>(t.tm_wday);
  time->wDay = static_cast<uint16_t>(t.tm_mday);
  time->wHour = static_cast<uint16_t>(t.tm_hour);
  time->wMinute = static_cast<uint16_t>(t.tm_min);
  time->wSecond = static_cast<uint16_t>(t.tm_sec);
  time->wMilliseconds = ms;
}

}  // namespace

void KD_Time_GetSystemTime(KD_SystemTimeRec* time) {
  if (time) Fill(false, time);
}

void KD_Time_GetLocalTime(KD_SystemTimeRec* time) {
  if (time) Fill(true, time);
}

void KDCRT_GetCurrentSystemTime(KD_ZonedTimeRec* time) {
  if (!time) return;
  std::memset(time, 0, sizeof *time);
  KD_SystemTimeRec local;
  Fill(true, &local);
  time->wYear = local.wYear;
  time->wMonth = local.wMonth;
  time->wDay = local.wDay;
  time->wDayOfWeek = local.wDayOfWeek;
  time->wHour = local.wHour;
  time->wMinute = local.wMinute;
  time->wSecond = local.wSecond;
  time->wMilliseconds = local.wMilliseconds;
  tzset();
  const long west = timezone;  // seconds west of UTC, standard time
  time->tzHour = static_cast<int32_t>(west / 3600);
  time->tzMinute = static_cast<uint16_t>(((west < 0 ? -west : west) % 3600) / 60);
}

size_t KD_Time_GetClock() { return static_cast<size_t>(clock() / 1000); }

int KD_Time_Sleep(uint32_t milliseconds) {
  const uint32_t micros = milliseconds * 1000u;  // wraps in 32 bits, as documented
  struct timespec left = {static_cast<time_t>(micros / 1000000u), static_cast<long>(micros % 1000000u) * 1000};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
  return 0;
}
