// How the silence put in place of lost frames becomes events 67.
#include "record/LostAudioReport.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using wv::LostAudioReport;

TEST(LostAudioReport, OneLossIsOneEventAtOnceAndNothingIsReportedTwice) {
    LostAudioReport report(8000);
    EXPECT_EQ(report.due(1000), 0);  // nothing lost
    EXPECT_EQ(report.flush(), 0);
    report.add(800);
    EXPECT_EQ(report.due(2000), 100);
    EXPECT_EQ(report.due(500000), 0);
    EXPECT_EQ(report.flush(), 0);
    // A single frame is still a loss: it is never rounded away.
    report.add(1);
    EXPECT_EQ(report.due(900000), 1);
}

// A device losing a little in every block makes one event per period
// carrying the sum, and the values add up to the whole loss.
TEST(LostAudioReport, ABurstIsSummedToOneEventPerPeriod) {
    LostAudioReport report(44100);
    std::vector<int32_t> values;
    uint64_t lost = 0;
    for (int64_t t = 0; t < 1000000; t += 5000) {  // a block every 5 ms
        report.add(37);
        lost += 37;
        if (const int32_t ms = report.due(t)) values.push_back(ms);
    }
    if (const int32_t ms = report.flush()) values.push_back(ms);
    EXPECT_LE(values.size(), 11u);
    EXPECT_GE(values.size(), 10u);
    int64_t sum = 0;
    for (int32_t v : values) sum += v;
    const double exactMs = double(lost) * 1000.0 / 44100.0;
    EXPECT_GE(double(sum), exactMs);
    EXPECT_LT(double(sum), exactMs + 1.0);
}

TEST(LostAudioReport, FlushReportsTheRestWithoutWaiting) {
    LostAudioReport report(16000);
    report.add(160);
    EXPECT_EQ(report.due(0), 10);
    report.add(320);
    EXPECT_EQ(report.due(50000), 0);  // within the period
    EXPECT_EQ(report.flush(), 20);
}

}  // namespace
