#include "HushmeadowsSaver/SaverRuns.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace hushmeadows {
namespace {

// What the host does, in order: a view joins the run or is destroyed, or the system speaks.
enum Step { join1, join2, destroy1, willStop, didStart, didStartFromPreferences };

struct Case {
    const char* name;
    std::vector<Step> steps;
    std::map<SaverRuns::Instance, int> willStops;
    std::size_t live;
    std::string activation;
};

TEST(SaverRunsUnitTests, EveryLiveInstanceStopsOnceAndNoRunJudgesTheNext)
{
    const Case cases[] = {
        {"one will-stop per live instance, then none", {join1, join2, join1, willStop, willStop}, {{1, 1}, {2, 1}}, 0, "unknown"},
        {"a destroyed instance hears nothing", {join1, join2, destroy1, willStop}, {{2, 1}}, 0, "unknown"},
        {"a preview's didstart ends with its run", {didStartFromPreferences, join1, willStop, join2}, {{1, 1}}, 1, "unknown"},
        {"the next run's early didstart is kept", {join1, willStop, didStart, join1}, {{1, 1}}, 1, "running(fromPreferences: false)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        int connects = 0;
        std::map<SaverRuns::Instance, int> willStops;
        SaverRuns runs([&connects] { ++connects; });
        runs.activation().install();
        for (Step step : c.steps) {
            switch (step) {
            case join1: runs.join(1, [&willStops] { ++willStops[1]; }); break;
            case join2: runs.join(2, [&willStops] { ++willStops[2]; }); break;
            case destroy1: runs.leave(1); break;
            case willStop: runs.screenSaverWillStop(); break;
            case didStart: runs.screenSaverDidStart(false); break;
            case didStartFromPreferences: runs.screenSaverDidStart(true); break;
            }
        }
        EXPECT_EQ(willStops, c.willStops);
        EXPECT_EQ(runs.liveCount(), c.live);
        EXPECT_EQ(runs.activation().state().description(), c.activation);
        EXPECT_EQ(connects, 1) << "the system's signals are connected once for the process";
    }
}

} // namespace
} // namespace hushmeadows
