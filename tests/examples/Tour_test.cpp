// The tour, run as a newcomer runs it, and its summary.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Capture.h"
#include "ChildProcess.h"
#include "FreshProcess.h"
#include "PrivateNetwork.h"
#include "tour/Findings.h"
#include "tour/Summary.h"

namespace {

using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

TEST(Tour, findsEverythingAsItShouldBe)
{
    ChildProcess tour(TOUR_PROGRAM, {});

    EXPECT_EQ(tour.wait(), 0) << tour.output();
    EXPECT_THAT(tour.errors(), IsEmpty());
    EXPECT_THAT(tour.output(), Not(HasSubstr("NOT SO")));
    EXPECT_THAT(tour.output(),
                ContainsRegex("\nSummary: 13 steps, [1-9][0-9]* checks, 0 failed; .*6000 events, .*100 clients, "
                              "4000000 bytes echoed, [0-9.]+ s\\.\n$"));
}

TEST(Tour, numbersItsSteps)
{
    ChildProcess tour(TOUR_PROGRAM, {});
    ASSERT_EQ(tour.wait(), 0);

    const std::string output = tour.output();
    std::size_t place = 0;
    for (int step = 1; step <= 13; ++step) {
        place = output.find("\n" + std::to_string(step) + ". ", place);
        ASSERT_NE(place, std::string::npos) << "no step " << step;
    }
}

TEST(Tour, needsNoNetworkButLoopback)
{
    const std::string obstacle = privatenetwork::obstacle();
    if (!obstacle.empty())
        GTEST_SKIP() << obstacle;
    EXPECT_IN_FRESH_PROCESS({
        privatenetwork::enter();
        privatenetwork::ip("link set lo up");
        ChildProcess tour(TOUR_PROGRAM, {});
        EXPECT_EQ(tour.wait(), 0) << tour.output();
        EXPECT_THAT(tour.errors(), IsEmpty());
        EXPECT_THAT(tour.output(), HasSubstr("Physical interfaces: none.\n"));
        EXPECT_THAT(tour.output(), HasSubstr("There is no interface besides the loopback device"));
    });
}

TEST(TourSummary, sumsUpTheSteps)
{
    std::vector<Findings> steps(2);
    int status = -1;
    const std::string printed = printedBy([&] {
        steps[0].check(true, "water is wet");
        steps[1].check(true, "fire is hot");
        steps[1].check(true, "ice is cold");
        steps[1].figure(7, "seas");
        status = summarise(steps, 1.5);
    });

    EXPECT_EQ(status, 0);
    EXPECT_THAT(printed, HasSubstr("[ok] fire is hot\n"));
    EXPECT_THAT(printed, EndsWith("Summary: 2 steps, 3 checks, 0 failed; 7 seas, 1.50 s.\n"));
}

TEST(TourSummary, namesWhatFailedAndFails)
{
    std::vector<Findings> steps(2);
    int status = -1;
    const std::string printed = printedBy([&] {
        steps[0].check(true, "water is wet");
        EXPECT_FALSE(steps[1].check(false, "ice is warm"));
        status = summarise(steps, 0);
    });

    EXPECT_EQ(status, 1);
    EXPECT_THAT(printed, HasSubstr("[NOT SO] ice is warm\n"));
    EXPECT_THAT(printed, HasSubstr("Step 2 went wrong; this should be so: ice is warm.\n"));
    EXPECT_THAT(printed, EndsWith("Summary: 2 steps, 2 checks, 1 failed; 0.00 s.\n"));
}

}  // namespace
