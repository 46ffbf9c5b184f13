#include "SceneCore/Runtime/Log.h"

#include <gtest/gtest.h>

namespace hushmeadows {
namespace {

std::string render(std::string_view format, std::vector<LogValue> args, bool reveal = false)
{
    return renderLogFormat(format, args, reveal);
}

TEST(LogFormat, SystemFormatsAsTheyStand)
{
    EXPECT_EQ(render("[%{public}s] init preview=%{bool}d size=%ldx%ld world=%{public}s",
                     {std::string("k3x9a"), true, std::int64_t{1920}, std::int64_t{1080}, std::string("calm-lake")}),
              "[k3x9a] init preview=true size=1920x1080 world=calm-lake");
    EXPECT_EQ(render("audio acquired music=%f ambience=%f style=%{public}s", {0.5, 0.25, std::string("studio")}),
              "audio acquired music=0.500000 ambience=0.250000 style=studio");
    EXPECT_EQ(render("fade %.*f s over %lld steps", {std::int64_t{2}, 0.8, std::int64_t{48}}), "fade 0.80 s over 48 steps");
    EXPECT_EQ(render("100%% done %{bool}d", {false}), "100% done false");
}

TEST(LogFormat, PrivateArgumentsAreRedactedUnlessRevealed)
{
    std::vector<LogValue> args{std::string("a.hushmeadow"), std::string("secret reason")};
    EXPECT_EQ(render("Skipping world %{public}s: %{private}s", args), "Skipping world a.hushmeadow: <private>");
    EXPECT_EQ(render("Skipping world %{public}s: %{private}s", args, true), "Skipping world a.hushmeadow: secret reason");
    // Unannotated texts are private, unannotated numbers public.
    EXPECT_EQ(render("%s %d", {std::string("text"), std::int64_t{7}}), "<private> 7");
    EXPECT_EQ(render("%{private}d", {std::int64_t{7}}), "<private>");
}

TEST(LogFormat, MissingArgumentsDoNotCrash)
{
    EXPECT_EQ(render("a %{public}s b %ld", {std::string("x")}), "a x b <missing>");
    EXPECT_EQ(render("trailing %", {}), "trailing %");
    EXPECT_EQ(render("open %{public", {std::string("x")}), "open %{public");
}

} // namespace
} // namespace hushmeadows
