#include "norvane/runtime/system_time.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

// Seconds since 1970 of a record's fields, by the civil-date algorithm rather than the C library.
template <class Rec>
long long SecondsOf(const Rec& t) {
  const long long y = t.wYear - (t.wMonth <= 2), era = y / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (t.wMonth > 2 ? t.wMonth - 3 : t.wMonth + 9) + 2) / 5 + t.wDay - 1;
  const long long days = era * 146097 + yoe * 365 + yoe / 4 - yoe / 100 + doy - 719468;
  EXPECT_EQ(t.wDayOfWeek, (days + 4) % 7);  // 1970-01-01 was a Thursday
  EXPECT_TRUE(t.wYear >= 2024 && t.wMonth >= 1 && t.wMonth <= 12 && t.wDay >= 1 && t.wDay <= 31 &&
              t.wHour <= 23 && t.wMinute <= 59 && t.wSecond <= 60 && t.wMilliseconds <= 999);
  return days * 86400 + t.wHour * 3600 + t.wMinute * 60 + t.wSecond;
}

// UTC fields against the system clock; null records are ignored.
TEST(Time, SystemTimeIsUtcNow) {
  auto now = [] {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
  };
  KD_SystemTimeRec t;
  const long long before = now();
  KD_Time_GetSystemTime(&t);
  const long long after = now();
  EXPECT_TRUE(SecondsOf(t) >= before && SecondsOf(t) <= after);
  KD_Time_GetSystemTime(nullptr);
  KD_Time_GetLocalTime(nullptr);
  KDCRT_GetCurrentSystemTime(nullptr);
}

// Zone hours are positive west of UTC and truncated towards zero, minutes unsigned, a zone with
// summer time reports its standard offset; both local calls give UTC shifted by the offset.
TEST(Time, ZoneOffsetsEastAndWest) {
  const struct {
    const char* tz;
    int hours, minutes;
    long long east;  // local minus UTC, in seconds
  } zones[] = {{"UTC0", 0, 0, 0},          {"IST-5:30", -5, 30, 19800},       {"NPT-5:45", -5, 45, 20700},
               {"JST-9", -9, 0, 32400},    {"<+1245>-12:45", -12, 45, 45900}, {"EST5", 5, 0, -18000},
               {"NST3:30", 3, 30, -12600}, {"<-0930>9:30", 9, 30, -34200},    {"CET-1CEST,M3.5.0,M10.5.0/3", -1, 0, -1}};
  const char* old = std::getenv("TZ");
  const std::string saved = old ? old : "";
  for (const auto& z : zones) {
    setenv("TZ", z.tz, 1);
    for (int attempt = 0; attempt < 20; ++attempt) {
      KD_SystemTimeRec utc1, utc2, local;
      KD_ZonedTimeRec zoned;
      std::memset(&zoned, 0xA5, sizeof zoned);
      KD_Time_GetSystemTime(&utc1);
      KDCRT_GetCurrentSystemTime(&zoned);
      KD_Time_GetLocalTime(&local);
      KD_Time_GetSystemTime(&utc2);
      EXPECT_TRUE(zoned.tzHour == z.hours && zoned.tzMinute == z.minutes) << z.tz;
      EXPECT_EQ(reinterpret_cast<const uint8_t*>(&zoned)[22], 0) << "the record is cleared first";
      if (SecondsOf(utc1) != SecondsOf(utc2)) continue;  // a second ended between the reads
      if (z.east != -1) {
        EXPECT_EQ(SecondsOf(zoned) - SecondsOf(utc1), z.east) << z.tz;
        EXPECT_EQ(SecondsOf(local) - SecondsOf(utc1), z.east) << z.tz;
      }
      break;
    }
  }
  old ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ");
  tzset();
}

// The clock is clock() in milliseconds. The sleep's microseconds wrap in 32 bits: 4294968 ms
// (4294968000 us) sleeps 704 us, not 71 minutes.
TEST(Time, ClockAndSleep) {
  const clock_t before = clock() / 1000;
  const size_t ours = KD_Time_GetClock();
  EXPECT_TRUE(static_cast<size_t>(before) <= ours && ours <= static_cast<size_t>(clock() / 1000));
  using Clock = std::chrono::steady_clock;
  const struct {
    uint32_t ms;
    long long at_least_us;
  } sleeps[] = {{0, 0}, {20, 20000}, {4294968u, 704}};
  for (const auto& s : sleeps) {
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(KD_Time_Sleep(s.ms), 0);
    const auto slept = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
    EXPECT_TRUE(slept >= s.at_least_us && slept < 60000000) << s.ms << " ms slept " << slept << " us";
  }
}

}  // namespace
