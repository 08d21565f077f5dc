#include "recentre/Recentring.h"
#include "support/RandomScene.h"
#include "support/WorldPlaces.h"

#include <gtest/gtest.h>

#include <cmath>
#include <iostream>
#include <string>

using namespace testing_support;
using namespace veltrane::sceneutils::tool;

namespace {

constexpr unsigned int graphs = 4000;

/** What rounding may make of a place: the number that was rewritten lies as far from the origin as the place from the
 * graph's centre, and is of single precision; everything else is of double precision. */
double roundingOf(const osg::Vec3d& place, const osg::Vec3d& centre) {
    return std::ldexp((place - centre).length(), -23) + std::ldexp(place.length() + centre.length() + 1e6, -44);
}

::testing::AssertionResult areTheSame(const std::vector<WorldPlace>& before, const std::vector<WorldPlace>& now,
                                      const osg::Vec3d& centre) {
    if (before.size() != now.size()) return ::testing::AssertionFailure() << now.size() << " of " << before.size();
    for (std::size_t i = 0; i < now.size(); ++i) {
        const double difference = (now[i].place - before[i].place).length();
        if (before[i].what != now[i].what || !(difference <= roundingOf(before[i].place, centre)))
            return ::testing::AssertionFailure()
                   << before[i].what << " became " << now[i].what << " and moved by " << difference;
    }
    return ::testing::AssertionSuccess();
}

struct Shares {
    unsigned int moved = 0;
    unsigned int refused = 0;
    unsigned int notMoved = 0;
};

/** Recentres many graphs and expects that in each all stays in its place, or that it is refused. */
Shares recentreMany(bool asGraph) {
    Shares shares;
    for (unsigned int seed = 0; seed < graphs; ++seed) {
        SCOPED_TRACE("graph " + std::to_string(seed));
        const osg::ref_ptr<osg::Node> graph = RandomScene(seed).make();
        const std::vector<WorldPlace> before = WorldPlaces(*graph).list();
        try {
            const Recentring done = recentre(graph, {0.0, asGraph});
            EXPECT_TRUE(areTheSame(before, WorldPlaces(*done.graph).list(), done.offset));
            ++(done.reasonNotMoved.empty() ? shares.moved : shares.notMoved);
        } catch (const RecentreError& refusal) {
            EXPECT_EQ(std::string(refusal.what()).find("would be at"), std::string::npos) << refusal.what();
            EXPECT_TRUE(areTheSame(before, WorldPlaces(*graph).list(), osg::Vec3d()));
            ++shares.refused;
        }
    }
    std::cout << graphs << " graphs: " << shares.moved << " moved, " << shares.refused << " refused, "
              << shares.notMoved << " not moved\n";
    return shares;
}

}  // namespace

TEST(RecentreProperty, EverythingStaysInItsPlaceOrTheGraphIsRefused) {
    const Shares shares = recentreMany(false);

    EXPECT_GT(shares.moved, graphs / 2);
    EXPECT_GT(shares.refused, graphs / 20);
}

TEST(RecentreProperty, EverythingStaysInItsPlaceOrTheGraphIsRefusedWithoutMovingLightPoints) {
    const Shares shares = recentreMany(true);

    EXPECT_GT(shares.moved, graphs / 2);
    EXPECT_GT(shares.refused, graphs / 20);
}
