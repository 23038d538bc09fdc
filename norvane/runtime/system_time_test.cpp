#include "norvane/runtime/system_time.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

// Days since 1970-01-01 of a proleptic Gregorian date, worked out here rather than by the C
// library that the calls under test use.
long long DaysFromCivil(long long y, unsigned m, unsigned d) {
  y -= m <= 2;
  const long long era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<long long>(doe) - 719468;
}

template <class Rec>
long long SecondsOf(const Rec& t) {
  return DaysFromCivil(t.wYear, t.wMonth, t.wDay) * 86400 + t.wHour * 3600 + t.wMinute * 60 + t.wSecond;
}

// Every field in its range, and the day of week agreeing with the date (1970-01-01 was a Thursday).
template <class Rec>
void ExpectConsistent(const Rec& t) {
  EXPECT_GE(t.wYear, 2020);
  EXPECT_TRUE(t.wMonth >= 1 && t.wMonth <= 12 && t.wDay >= 1 && t.wDay <= 31 && t.wHour <= 23 && t.wMinute <= 59 &&
              t.wSecond <= 60 && t.wMilliseconds <= 999);
  EXPECT_EQ(t.wDayOfWeek, (DaysFromCivil(t.wYear, t.wMonth, t.wDay) + 4) % 7);
}

// Sets TZ for the scope of a test and restores it afterwards.
class ScopedTZ {
 public:
  explicit ScopedTZ(const char* tz) {
    if (const char* old = std::getenv("TZ")) {
      old_ = old;
      had_ = true;
    }
    setenv("TZ", tz, 1);
    tzset();
  }
  ~ScopedTZ() {
    if (had_) {
      setenv("TZ", old_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  std::string old_;
  bool had_ = false;
};

// UTC fields against the system clock, and the null record ignored.
TEST(Time, SystemTimeIsUtcNow) {
  KD_SystemTimeRec t;
  const long long before = std::chrono::duration_cast<std::chrono::seconds>(
                               std::chrono::system_clock::now().time_since_epoch()).count();
  KD_Time_GetSystemTime(&t);
  const long long after = std::chrono::duration_cast<std::chrono::seconds>(
                              std::chrono::system_clock::now().time_since_epoch()).count();
  ExpectConsistent(t);
  EXPECT_GE(SecondsOf(t), before);
  EXPECT_LE(SecondsOf(t), after);
  KD_Time_GetSystemTime(nullptr);
  KD_Time_GetLocalTime(nullptr);
  KDCRT_GetCurrentSystemTime(nullptr);
}

// Zone hours are positive west of UTC and truncated towards zero; minutes carry no sign. The
// zoned record holds the standard offset even in a zone with daylight saving time, and the local
// fields of both local calls are UTC shifted by the zone's offset.
TEST(Time, ZoneOffsetsEastAndWest) {
  const struct {
    const char* tz;
    int hours;
    int minutes;
    long long east_seconds;  // local minus UTC; 0 for the zone with daylight saving time (not checked)
  } zones[] = {
      {"UTC0", 0, 0, 0},                 {"IST-5:30", -5, 30, 19800},        {"NPT-5:45", -5, 45, 20700},
      {"JST-9", -9, 0, 32400},           {"<+1245>-12:45", -12, 45, 45900},  {"EST5", 5, 0, -18000},
      {"NST3:30", 3, 30, -12600},        {"<-0930>9:30", 9, 30, -34200},     {"<-12>12", 12, 0, -43200},
      {"CET-1CEST,M3.5.0,M10.5.0/3", -1, 0, 0},
  };
  for (const auto& z : zones) {
    ScopedTZ scoped(z.tz);
    bool compared = false;
    // Read UTC on both sides, so that the local fields fall within one UTC second.
    for (int attempt = 0; attempt < 20 && !compared; ++attempt) {
      KD_SystemTimeRec utc1, utc2, local;
      KD_ZonedTimeRec zoned;
      std::memset(&zoned, 0xA5, sizeof zoned);
      KD_Time_GetSystemTime(&utc1);
      KDCRT_GetCurrentSystemTime(&zoned);
      KD_Time_GetLocalTime(&local);
      KD_Time_GetSystemTime(&utc2);
      EXPECT_EQ(zoned.tzHour, z.hours) << z.tz;
      EXPECT_EQ(zoned.tzMinute, z.minutes) << z.tz;
      EXPECT_EQ(reinterpret_cast<const uint8_t*>(&zoned)[22], 0) << "the record is cleared first";
      ExpectConsistent(zoned);
      ExpectConsistent(local);
      if (SecondsOf(utc1) != SecondsOf(utc2)) continue;
      compared = true;
      if (z.east_seconds == 0 && z.hours != 0) continue;
      EXPECT_EQ(SecondsOf(zoned) - SecondsOf(utc1), z.east_seconds) << z.tz;
      EXPECT_EQ(SecondsOf(local) - SecondsOf(utc1), z.east_seconds) << z.tz;
    }
    EXPECT_TRUE(compared) << z.tz;
  }
}

// The clock is clock() in milliseconds; the sleep's microsecond count wraps in 32 bits, so
// 4294968 ms (4294968000 us) sleeps 704 us rather than 71 minutes.
TEST(Time, ClockAndSleep) {
  const size_t before = static_cast<size_t>(clock() / 1000);
  const size_t ours = KD_Time_GetClock();
  const size_t after = static_cast<size_t>(clock() / 1000);
  EXPECT_LE(before, ours);
  EXPECT_LE(ours, after);

  using Clock = std::chrono::steady_clock;
  const struct {
    uint32_t ms;
    long long at_least_us;
  } sleeps[] = {{0, 0}, {20, 20000}, {4294968u, 704}};
  for (const auto& s : sleeps) {
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(KD_Time_Sleep(s.ms), 0);
    const long long slept = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
    EXPECT_GE(slept, s.at_least_us) << s.ms;
    EXPECT_LT(slept, 60 * 1000000LL) << s.ms;
  }
}

}  // namespace
