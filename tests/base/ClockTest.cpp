#include "base/Clock.h"

#include <gtest/gtest.h>

namespace {

TEST(Clock, AddMsCarriesMicroseconds) {
    wv::TimeVal t{10, 999500};
    wv::TimeVal later = wv::addMs(t, 1);
    EXPECT_EQ(later.sec, 11);
    EXPECT_EQ(later.usec, 500);
    later = wv::addMs(t, 2500);
    EXPECT_EQ(later.sec, 13);
    EXPECT_EQ(later.usec, 499500);
    EXPECT_EQ(wv::diffUs(later, t), 2500000);
    EXPECT_EQ(wv::diffUs(t, later), -2500000);
}

TEST(Clock, TimeOfDayIsMonotonic) {
    wv::TimeVal a = wv::timeOfDay();
    wv::sleepUs(2000);
    wv::TimeVal b = wv::timeOfDay();
    EXPECT_GE(wv::diffUs(b, a), 2000);
    EXPECT_GE(b.usec, 0);
    EXPECT_LE(b.usec, 999999);
}

}  // namespace
