#include <sceneutils/CreatePagedLODVisitor.h>

#include "support/FileRequests.h"
#include "support/FindNodes.h"
#include "support/FlightFiles.h"
#include "support/StandardError.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <osg/PagedLOD>

#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using veltrane::sceneutils::CreatePagedLODVisitor;

constexpr float someRadius = 5.0f;
constexpr const char* refusal = "Cannot set convertExRefsToIVE to false if recurse is true\n";

osgDB::ReaderWriter::ReadResult modelForAnyName(const std::string&, const osgDB::Options*) {
    return osgDB::ReaderWriter::ReadResult(makeGeode(makeRectangle(someRadius, osg::Vec3(1, 2, 3))).get());
}

osgDB::ReaderWriter::ReadResult nothingForAnyName(const std::string&, const osgDB::Options*) {
    return osgDB::ReaderWriter::ReadResult::FILE_NOT_FOUND;
}

std::string messagesOf(const std::function<void()>& action) {
    const StandardError standardError;
    action();
    return standardError.text();
}

// A graph of a root and one ProxyNode below it.
struct ReferringGraph {
    explicit ReferringGraph(const std::string& fileName) : proxy(makeProxy(fileName)) { root->addChild(proxy); }

    osg::PagedLOD* pagedLOD() const { return dynamic_cast<osg::PagedLOD*>(root->getChild(0)); }

    // What takes the ProxyNode's place when the visitor has met it, or null if it stays.
    osg::PagedLOD* pageWith(CreatePagedLODVisitor& visitor) const {
        const StandardError silenced;
        root->accept(visitor);
        visitor.InsertPagedLODs();
        return pagedLOD();
    }

    osg::ref_ptr<osg::ProxyNode> proxy;
    osg::ref_ptr<osg::Group> root = new osg::Group;
};

osg::ref_ptr<osg::PagedLOD> addPage(CreatePagedLODVisitor& visitor, osg::ProxyNode& proxy) {
    osg::ref_ptr<osg::PagedLOD> page = new osg::PagedLOD;
    visitor.addProxyToPagedLOD(proxy, page, osg::BoundingSphere(osg::Vec3(1, 2, 3), 4), "tile.ive");
    return page;
}

TEST(CreatePagedLODVisitor, TraversesAllChildren) {
    EXPECT_EQ(osg::NodeVisitor::TRAVERSE_ALL_CHILDREN, CreatePagedLODVisitor(nullptr).getTraversalMode());
}

TEST(CreatePagedLODVisitor, RefusesToStopConvertingReferencesWhileRecursing) {
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setRecurse(true);

    EXPECT_EQ(refusal, messagesOf([&] { visitor.setConvertExRefsToIVE(false); }));
    EXPECT_EQ("", messagesOf([&] { visitor.setConvertExRefsToIVE(true); }));
}

TEST(CreatePagedLODVisitor, GoesOnConvertingReferencesAfterARefusalAndAfterRecursingStops) {
    const ModelRequests models(modelForAnyName);
    const TemporaryDirectory folder;
    const WorkingDirectory working(folder.path());
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setRecurse(true);
    messagesOf([&] { visitor.setConvertExRefsToIVE(false); });
    visitor.setRecurse(false);

    EXPECT_EQ("tile.ive", ReferringGraph("tile.flt").pageWith(visitor)->getFileName(0));
}

TEST(CreatePagedLODVisitor, StopsConvertingReferencesWhenAskedToWithoutRecursion) {
    const ModelRequests models(modelForAnyName);
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setConvertExRefsToIVE(true);
    visitor.setConvertExRefsToIVE(false);

    EXPECT_EQ("tile.flt", ReferringGraph("tile.flt").pageWith(visitor)->getFileName(0));
}

TEST(CreatePagedLODVisitor, PagesAFlightReferenceUnderItsOwnNameByDefault) {
    const ModelRequests models(modelForAnyName);
    CreatePagedLODVisitor visitor(nullptr);
    const ReferringGraph graph("tile.flt");

    const osg::PagedLOD* page = graph.pageWith(visitor);

    ASSERT_TRUE(page);
    EXPECT_EQ("tile.flt", page->getFileName(0));
    EXPECT_EQ("tile.flt", graph.proxy->getFileName(0));
}

TEST(CreatePagedLODVisitor, ReadsReferencesUncachedKeepingTheirReferencesAndFaces) {
    const ModelRequests models(modelForAnyName);
    CreatePagedLODVisitor visitor(nullptr);

    ReferringGraph("tile.flt").pageWith(visitor);

    ASSERT_TRUE(models.lastOptions());
    EXPECT_EQ("keepExternalReferences=yes;preserveFace=yes", models.lastOptions()->getOptionString());
    EXPECT_EQ(osgDB::Options::CACHE_NONE, models.lastOptions()->getObjectCacheHint());
}

// The name of a reference, and the name that its page gets.
using NameCase = std::pair<std::string, std::string>;

class CreatePagedLODVisitorNames : public testing::TestWithParam<NameCase> {};

TEST_P(CreatePagedLODVisitorNames, CutsTheNameAtItsFirstFltWhenConverting) {
    const ModelRequests models(modelForAnyName);
    const TemporaryDirectory folder;
    const WorkingDirectory working(folder.path());
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setConvertExRefsToIVE(true);
    const ReferringGraph graph(GetParam().first);

    const osg::PagedLOD* page = graph.pageWith(visitor);

    ASSERT_TRUE(page);
    EXPECT_EQ(GetParam().second, page->getFileName(0));
    EXPECT_EQ(GetParam().second, graph.proxy->getFileName(0));
    EXPECT_THAT(models.names(), ElementsAre(GetParam().first));
    EXPECT_TRUE(std::filesystem::exists(GetParam().second));
}

INSTANTIATE_TEST_SUITE_P(, CreatePagedLODVisitorNames,
                         testing::Values(NameCase{"tile.flt", "tile.ive"}, NameCase{"a.flt.flt", "a.ive"},
                                         NameCase{"x.flt2", "x.ive"}, NameCase{"db.flt/tile.osg", "db.ive"},
                                         NameCase{".flt", ".ive"}));

class CreatePagedLODVisitorOtherNames : public testing::TestWithParam<const char*> {};

TEST_P(CreatePagedLODVisitorOtherNames, AreNeitherReadNorPagedNorChanged) {
    const ModelRequests models(modelForAnyName);
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setConvertExRefsToIVE(true);
    const ReferringGraph graph(GetParam());

    EXPECT_FALSE(graph.pageWith(visitor));
    EXPECT_EQ(GetParam(), graph.proxy->getFileName(0));
    EXPECT_THAT(models.names(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(, CreatePagedLODVisitorOtherNames, testing::Values("tile.osg", "TILE.FLT", "flt", ""));

TEST(CreatePagedLODVisitor, LeavesAProxyWithoutAnyFileNameAlone) {
    CreatePagedLODVisitor visitor(nullptr);
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(new osg::ProxyNode);

    EXPECT_EQ("", messagesOf([&] { root->accept(visitor); }));
    visitor.InsertPagedLODs();

    EXPECT_STREQ("ProxyNode", root->getChild(0)->className());
}

TEST(CreatePagedLODVisitor, LooksAtTheFirstFileNameOnly) {
    const ModelRequests models(modelForAnyName);
    CreatePagedLODVisitor visitor(nullptr);
    const ReferringGraph osgFirst("tile.osg");
    osgFirst.proxy->setFileName(1, "second.flt");
    const ReferringGraph fltFirst("first.flt");
    fltFirst.proxy->setFileName(1, "second.flt");

    EXPECT_FALSE(osgFirst.pageWith(visitor));
    EXPECT_TRUE(fltFirst.pageWith(visitor));
    EXPECT_THAT(models.names(), ElementsAre("first.flt"));
    EXPECT_EQ(1u, fltFirst.pagedLOD()->getNumFileNames());
}

TEST(CreatePagedLODVisitor, GoesOnToTheChildrenOfEveryProxy) {
    const ModelRequests models(modelForAnyName);
    CreatePagedLODVisitor visitor(nullptr);
    const ReferringGraph unpaged("tile.osg");
    unpaged.proxy->addChild(makeProxy("below_unpaged.flt"));
    const ReferringGraph paged("tile.flt");
    paged.proxy->addChild(makeProxy("below_paged.flt"));

    unpaged.pageWith(visitor);
    paged.pageWith(visitor);

    EXPECT_THAT(models.names(), ElementsAre("below_unpaged.flt", "tile.flt", "below_paged.flt"));
    EXPECT_TRUE(dynamic_cast<osg::PagedLOD*>(paged.proxy->getChild(0)));
}

TEST(CreatePagedLODVisitor, ReadsAFileOnceForAllProxiesThatNameIt) {
    const ModelRequests models(modelForAnyName);
    CreatePagedLODVisitor visitor(nullptr);

    const ReferringGraph first("tile.flt");
    const ReferringGraph second("tile.flt");
    const osg::PagedLOD* firstPage = first.pageWith(visitor);
    const osg::PagedLOD* secondPage = second.pageWith(visitor);

    EXPECT_EQ(1, models.count("tile.flt"));
    ASSERT_TRUE(firstPage && secondPage);
    EXPECT_NE(firstPage, secondPage);
    EXPECT_EQ(firstPage->getCenter(), secondPage->getCenter());
    EXPECT_EQ(firstPage->getRadius(), secondPage->getRadius());
    EXPECT_EQ(firstPage->getMaxRange(0), secondPage->getMaxRange(0));
}

TEST(CreatePagedLODVisitor, KnowsFilesByTheNameBeforeItsRewriting) {
    const ModelRequests models(modelForAnyName);
    const TemporaryDirectory folder;
    const WorkingDirectory working(folder.path());
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setConvertExRefsToIVE(true);

    ReferringGraph("tile.flt").pageWith(visitor);
    ReferringGraph("tile.flt.flt").pageWith(visitor);
    ReferringGraph("tile.flt").pageWith(visitor);

    EXPECT_THAT(models.names(), ElementsAre("tile.flt", "tile.flt.flt"));
}

TEST(CreatePagedLODVisitor, LeavesAProxyOfAnUnreadableFileInPlaceWithoutAWord) {
    const ModelRequests models(nothingForAnyName);
    CreatePagedLODVisitor visitor(nullptr);
    const ReferringGraph graph("gone.flt");

    EXPECT_EQ("", messagesOf([&] { graph.root->accept(visitor); }));
    visitor.InsertPagedLODs();

    EXPECT_EQ(graph.proxy, graph.root->getChild(0));
}

TEST(CreatePagedLODVisitor, TriesAnUnreadableFileAgainForTheNextProxy) {
    CreatePagedLODVisitor visitor(nullptr);
    const ReferringGraph early("late.flt");
    const ReferringGraph late("late.flt");
    {
        const ModelRequests unreadable(nothingForAnyName);
        EXPECT_FALSE(early.pageWith(visitor));
        EXPECT_EQ(1, unreadable.count("late.flt"));
    }
    const ModelRequests readable(modelForAnyName);

    EXPECT_TRUE(late.pageWith(visitor));
    EXPECT_EQ(1, readable.count("late.flt"));
}

TEST(CreatePagedLODVisitor, RenamesTheReferenceEvenIfItsFileIsUnreadable) {
    const ModelRequests models(nothingForAnyName);
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setConvertExRefsToIVE(true);
    const ReferringGraph graph("gone.flt");

    EXPECT_FALSE(graph.pageWith(visitor));
    EXPECT_EQ("gone.ive", graph.proxy->getFileName(0));
}

TEST(CreatePagedLODVisitor, MakesThePageAsLargeAsTheModelAndVisibleFromTheMaximumRangeBeyondIt) {
    const ModelRequests models(modelForAnyName);
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setMaxRange(250);

    const ReferringGraph graph("tile.flt");
    const osg::PagedLOD* page = graph.pageWith(visitor);

    ASSERT_TRUE(page);
    EXPECT_EQ(osg::LOD::USER_DEFINED_CENTER, page->getCenterMode());
    EXPECT_EQ(osg::Vec3(1, 2, 3), page->getCenter());
    EXPECT_FLOAT_EQ(someRadius, page->getRadius());
    EXPECT_EQ(0.0f, page->getMinRange(0));
    EXPECT_FLOAT_EQ(someRadius + 250, page->getMaxRange(0));
    EXPECT_EQ(1u, page->getNumChildren());
    EXPECT_EQ(graph.proxy, page->getChild(0));
}

TEST(CreatePagedLODVisitor, SeesModelsFromTenThousandUnitsByDefault) {
    const ModelRequests models(modelForAnyName);
    CreatePagedLODVisitor visitor(nullptr);

    EXPECT_FLOAT_EQ(someRadius + 10000, ReferringGraph("tile.flt").pageWith(visitor)->getMaxRange(0));
}

TEST(CreatePagedLODVisitor, SetsUpThePageButLeavesTheGraphUntilInsertion) {
    CreatePagedLODVisitor visitor(nullptr);
    const ReferringGraph graph("tile.flt");
    const osg::ref_ptr<osg::PagedLOD> page = new osg::PagedLOD;
    page->setCenterMode(osg::LOD::UNION_OF_BOUNDING_SPHERE_AND_USER_DEFINED);

    visitor.addProxyToPagedLOD(*graph.proxy, page, osg::BoundingSphere(osg::Vec3(1, 2, 3), 4), "tile.ive");

    EXPECT_EQ(osg::LOD::USER_DEFINED_CENTER, page->getCenterMode());
    EXPECT_EQ(osg::Vec3(1, 2, 3), page->getCenter());
    EXPECT_EQ(4.0f, page->getRadius());
    EXPECT_EQ("tile.ive", page->getFileName(0));
    EXPECT_EQ(0u, page->getNumChildren());
    EXPECT_EQ(graph.proxy, graph.root->getChild(0));
    EXPECT_EQ("tile.flt", graph.proxy->getFileName(0));
}

TEST(CreatePagedLODVisitor, InsertsWithTheMaximumRangeOfTheTimeOfInsertion) {
    CreatePagedLODVisitor visitor(nullptr);
    const ReferringGraph graph("tile.flt");
    addPage(visitor, *graph.proxy).release();
    visitor.setMaxRange(-1);

    visitor.InsertPagedLODs();

    ASSERT_TRUE(graph.pagedLOD());
    EXPECT_EQ(3.0f, graph.pagedLOD()->getMaxRange(0));
}

TEST(CreatePagedLODVisitor, InsertsPagesAtThePlacesOfTheirProxies) {
    CreatePagedLODVisitor visitor(nullptr);
    const osg::ref_ptr<osg::Group> root = new osg::Group;
    std::vector<osg::ref_ptr<osg::Node>> pages;
    for (const char* name : {"a.flt", "b.flt", "c.flt"}) {
        const osg::ref_ptr<osg::ProxyNode> proxy = makeProxy(name);
        root->addChild(proxy);
        pages.emplace_back(addPage(visitor, *proxy));
    }

    visitor.InsertPagedLODs();

    EXPECT_THAT(pages, ElementsAre(root->getChild(0), root->getChild(1), root->getChild(2)));
}

TEST(CreatePagedLODVisitor, InsertsTwoPagesOfOneProxyOneInTheOther) {
    CreatePagedLODVisitor visitor(nullptr);
    const ReferringGraph graph("tile.flt");
    const osg::ref_ptr<osg::PagedLOD> outer = addPage(visitor, *graph.proxy);
    const osg::ref_ptr<osg::PagedLOD> inner = addPage(visitor, *graph.proxy);

    visitor.InsertPagedLODs();

    EXPECT_EQ(outer, graph.root->getChild(0));
    EXPECT_EQ(inner, outer->getChild(0));
    EXPECT_EQ(graph.proxy, inner->getChild(0));
}

TEST(CreatePagedLODVisitor, InsertsBelowTheFirstParentOnly) {
    CreatePagedLODVisitor visitor(nullptr);
    const ReferringGraph graph("tile.flt");
    const osg::ref_ptr<osg::Group> second = new osg::Group;
    second->addChild(graph.proxy);
    const osg::ref_ptr<osg::PagedLOD> page = addPage(visitor, *graph.proxy);

    visitor.InsertPagedLODs();

    EXPECT_EQ(page, graph.root->getChild(0));
    EXPECT_EQ(graph.proxy, second->getChild(0));
}

TEST(CreatePagedLODVisitor, PassesOverAProxyWithoutParentsAndLetsItsPageGo) {
    CreatePagedLODVisitor visitor(nullptr);
    const osg::ref_ptr<osg::ProxyNode> root = makeProxy("tile.flt");
    const osg::observer_ptr<osg::PagedLOD> page = new osg::PagedLOD;
    visitor.addProxyToPagedLOD(*root, page.get(), osg::BoundingSphere(osg::Vec3(), 1), "tile.ive");

    visitor.InsertPagedLODs();

    EXPECT_FALSE(page.valid());
    EXPECT_EQ(0u, root->getNumParents());
}

TEST(CreatePagedLODVisitor, PassesOverAProxyThatIsGoneAndLetsItsPageGo) {
    CreatePagedLODVisitor visitor(nullptr);
    const osg::observer_ptr<osg::PagedLOD> page = new osg::PagedLOD;
    {
        const ReferringGraph graph("tile.flt");
        visitor.addProxyToPagedLOD(*graph.proxy, page.get(), osg::BoundingSphere(osg::Vec3(), 1), "tile.ive");
    }

    visitor.InsertPagedLODs();

    EXPECT_FALSE(page.valid());
}

TEST(CreatePagedLODVisitor, PassesOverAPageThatIsGone) {
    CreatePagedLODVisitor visitor(nullptr);
    const ReferringGraph graph("tile.flt");
    addPage(visitor, *graph.proxy) = nullptr;

    visitor.InsertPagedLODs();

    EXPECT_EQ(graph.proxy, graph.root->getChild(0));
}

TEST(CreatePagedLODVisitor, LeavesPagesThatAreInPlaceAloneAtTheNextInsertion) {
    CreatePagedLODVisitor visitor(nullptr);
    const ReferringGraph graph("tile.flt");
    const osg::ref_ptr<osg::PagedLOD> page = addPage(visitor, *graph.proxy);
    visitor.InsertPagedLODs();

    visitor.InsertPagedLODs();

    EXPECT_EQ(page, graph.root->getChild(0));
    EXPECT_THAT(findAll<osg::PagedLOD>(graph.root), SizeIs(1));
    EXPECT_EQ(1u, page->getNumChildren());
    EXPECT_EQ(1u, page->getNumParents());
}

TEST(CreatePagedLODVisitor, LeavesPagesInsideEachOtherAloneAtTheNextInsertion) {
    CreatePagedLODVisitor visitor(nullptr);
    const ReferringGraph graph("tile.flt");
    const osg::ref_ptr<osg::PagedLOD> outer = addPage(visitor, *graph.proxy);
    const osg::ref_ptr<osg::PagedLOD> inner = addPage(visitor, *graph.proxy);
    visitor.InsertPagedLODs();

    visitor.InsertPagedLODs();

    EXPECT_EQ(outer->getParents(), osg::Node::ParentList{graph.root});
    EXPECT_EQ(inner->getParents(), osg::Node::ParentList{outer});
    EXPECT_EQ(graph.proxy->getParents(), osg::Node::ParentList{inner});
}

TEST(CreatePagedLODVisitor, KeepsItsListSoThatAProxyBroughtBackIsPagedAgain) {
    CreatePagedLODVisitor visitor(nullptr);
    const ReferringGraph graph("tile.flt");
    const osg::ref_ptr<osg::PagedLOD> page = addPage(visitor, *graph.proxy);
    visitor.InsertPagedLODs();
    page->removeChildren(0, 1);
    graph.root->setChild(0, graph.proxy);

    visitor.InsertPagedLODs();

    EXPECT_EQ(page, graph.root->getChild(0));
    EXPECT_EQ(graph.proxy, page->getChild(0));
}

TEST(CreatePagedLODVisitor, TellsEveryVisitorUpTheChainTheSphereItRead) {
    const ModelRequests models(modelForAnyName);
    CreatePagedLODVisitor top(nullptr);
    CreatePagedLODVisitor middle(&top);
    CreatePagedLODVisitor bottom(&middle);
    ReferringGraph("tile.flt").pageWith(bottom);

    EXPECT_TRUE(ReferringGraph("tile.flt").pageWith(top));
    EXPECT_TRUE(ReferringGraph("tile.flt").pageWith(middle));
    EXPECT_EQ(1, models.count("tile.flt"));
}

TEST(CreatePagedLODVisitor, AsksTheTopmostVisitorForASphere) {
    const ModelRequests models(modelForAnyName);
    CreatePagedLODVisitor top(nullptr);
    CreatePagedLODVisitor middle(&top);
    CreatePagedLODVisitor bottom(&middle);
    ReferringGraph("tile.flt").pageWith(top);

    EXPECT_TRUE(ReferringGraph("tile.flt").pageWith(bottom));
    EXPECT_EQ(1, models.count("tile.flt"));
}

TEST(CreatePagedLODVisitor, ReportsAnErrorOncePerPathAndVisitor) {
    CreatePagedLODVisitor visitor(nullptr);
    CreatePagedLODVisitor other(nullptr);

    EXPECT_EQ("Error reading file a.flt\nError reading file \nError reading file b.flt\n", messagesOf([&] {
                  for (const char* path : {"a.flt", "a.flt", "", "b.flt", "", "a.flt"}) visitor.reportErrorFile(path);
              }));
    EXPECT_EQ("Error reading file a.flt\n", messagesOf([&] { other.reportErrorFile("a.flt"); }));
}

struct Copier {
    const char* name;
    std::unique_ptr<CreatePagedLODVisitor> (*copy)(const CreatePagedLODVisitor&);
};

void PrintTo(const Copier& copier, std::ostream* out) {
    *out << copier.name;
}

std::unique_ptr<CreatePagedLODVisitor> constructCopy(const CreatePagedLODVisitor& visitor) {
    return std::make_unique<CreatePagedLODVisitor>(visitor);
}

std::unique_ptr<CreatePagedLODVisitor> assignCopy(const CreatePagedLODVisitor& visitor) {
    CreatePagedLODVisitor other(nullptr);
    auto copy = std::make_unique<CreatePagedLODVisitor>(&other);
    *copy = visitor;
    return copy;
}

class CreatePagedLODVisitorCopy : public testing::TestWithParam<Copier> {};

INSTANTIATE_TEST_SUITE_P(, CreatePagedLODVisitorCopy,
                         testing::Values(Copier{"Constructed", constructCopy}, Copier{"Assigned", assignCopy}),
                         [](const auto& copier) { return copier.param.name; });

TEST_P(CreatePagedLODVisitorCopy, KeepsTheTraversalSettings) {
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setTraversalMask(1);
    visitor.setNodeMaskOverride(2);
    visitor.setTraversalNumber(3);
    visitor.setTraversalMode(osg::NodeVisitor::TRAVERSE_ACTIVE_CHILDREN);

    const auto copy = GetParam().copy(visitor);

    EXPECT_EQ(1u, copy->getTraversalMask());
    EXPECT_EQ(2u, copy->getNodeMaskOverride());
    EXPECT_EQ(3u, copy->getTraversalNumber());
    EXPECT_EQ(osg::NodeVisitor::TRAVERSE_ACTIVE_CHILDREN, copy->getTraversalMode());
}

TEST_P(CreatePagedLODVisitorCopy, KeepsRecursing) {
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setRecurse(true);

    const auto copy = GetParam().copy(visitor);

    EXPECT_EQ(refusal, messagesOf([&] { copy->setConvertExRefsToIVE(false); }));
}

TEST_P(CreatePagedLODVisitorCopy, KeepsConvertingReferences) {
    const ModelRequests models(nothingForAnyName);
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setConvertExRefsToIVE(true);
    const ReferringGraph graph("tile.flt");

    graph.pageWith(*GetParam().copy(visitor));

    EXPECT_EQ("tile.ive", graph.proxy->getFileName(0));
}

TEST_P(CreatePagedLODVisitorCopy, KeepsTheRangeAndTheKnownSpheres) {
    const ModelRequests models(modelForAnyName);
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setMaxRange(20);
    ReferringGraph("tile.flt").pageWith(visitor);

    const osg::ref_ptr<osg::PagedLOD> page = ReferringGraph("tile.flt").pageWith(*GetParam().copy(visitor));

    EXPECT_EQ(1, models.count("tile.flt"));
    ASSERT_TRUE(page);
    EXPECT_FLOAT_EQ(someRadius + 20, page->getMaxRange(0));
}

TEST_P(CreatePagedLODVisitorCopy, KeepsWhatIsToBeInserted) {
    CreatePagedLODVisitor visitor(nullptr);
    const ReferringGraph graph("tile.flt");
    const osg::ref_ptr<osg::PagedLOD> page = addPage(visitor, *graph.proxy);

    GetParam().copy(visitor)->InsertPagedLODs();

    EXPECT_EQ(page, graph.root->getChild(0));
}

TEST_P(CreatePagedLODVisitorCopy, KeepsTheReportedErrors) {
    CreatePagedLODVisitor visitor(nullptr);
    messagesOf([&] { visitor.reportErrorFile("a.flt"); });

    const auto copy = GetParam().copy(visitor);

    EXPECT_EQ("", messagesOf([&] { copy->reportErrorFile("a.flt"); }));
}

TEST_P(CreatePagedLODVisitorCopy, KeepsTheDirectoryOfTheLastInput) {
    const ModelRequests models(nothingForAnyName);
    CreatePagedLODVisitor visitor(nullptr);
    messagesOf([&] { visitor.convert("db/world.flt", "world.ive"); });

    ReferringGraph("tile.flt").pageWith(*GetParam().copy(visitor));

    EXPECT_THAT(models.names(), ElementsAre("db/db/world.flt", "db/db/tile.flt"));
}

TEST_P(CreatePagedLODVisitorCopy, KeepsTheParent) {
    const ModelRequests models(modelForAnyName);
    CreatePagedLODVisitor parent(nullptr);
    const CreatePagedLODVisitor child(&parent);
    const auto copy = GetParam().copy(child);

    ReferringGraph("tile.flt").pageWith(*copy);

    EXPECT_TRUE(ReferringGraph("tile.flt").pageWith(parent));
    EXPECT_EQ(1, models.count("tile.flt"));
}

TEST_P(CreatePagedLODVisitorCopy, KeepsWhetherNormalsAreSmoothed) {
    CreatePagedLODVisitor visitor(nullptr);
    visitor.setDoSmooth(false);
    const osg::ref_ptr<osg::Geometry> rectangle = makeRectangle(someRadius);

    messagesOf([&] { GetParam().copy(visitor)->saveIVE(makeGeode(rectangle), "/nowhere/tile.ive"); });

    EXPECT_FALSE(rectangle->getNormalArray());
}

}  // namespace
