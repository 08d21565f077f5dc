#include "convert/TexturePlaces.h"

#include <gtest/gtest.h>

#include <string>

using namespace veltrane::sceneutils::tool;

namespace {

std::string nameFor(const std::string& texture) {
    return gatheredName("/db/in", texture);
}

/** The name without its hash, which must have 16 digits. */
std::string readablePart(const std::string& texture) {
    std::string name = nameFor(texture);
    const std::size_t end = name.rfind('.') == std::string::npos ? name.size() : name.rfind('.');
    const std::string hash = name.substr(end - 17, 17);
    EXPECT_EQ(hash.front(), '-') << name;
    EXPECT_EQ(hash.find_first_not_of("0123456789abcdef", 1), std::string::npos) << name;
    return name.erase(end - 17, 17);
}

}  // namespace

TEST(TexturePlaces, NameAGatheredTextureByItselfAndItsPathFromTheMaster) {
    // FNV-1a of "textures/a.png"
    EXPECT_EQ(nameFor("/db/in/textures/a.png"), "a-08ebe0841fd13508.png");
    EXPECT_EQ(gatheredName("/elsewhere", "/elsewhere/textures/a.png"), nameFor("/db/in/textures/a.png"));
    EXPECT_NE(nameFor("/db/in/a.png"), nameFor("/db/in/textures/a.png"));
    EXPECT_NE(nameFor("/db/in/A.png").substr(2), nameFor("/db/in/a.png").substr(2));
    EXPECT_NE(nameFor("/db/in/west/a.png").substr(2), nameFor("/db/in/West/a.png").substr(2));
}

TEST(TexturePlaces, KeepWhatIsHarmlessInAName) {
    EXPECT_EQ(readablePart("/db/in/Grass_0.small-1.RGBA"), "Grass_0.small-1.RGBA");
    EXPECT_EQ(readablePart("/db/in/Wäldchen.png"), "Wäldchen.png");
    EXPECT_EQ(readablePart("/db/in/no ending"), "no_ending");
}

TEST(TexturePlaces, ReplaceWhatIsHarmfulInAName) {
    EXPECT_EQ(readablePart("/db/in/a\nb\x1b[1m:*?\"<>|\\c.png"), "a_b__1m________c.png");
    EXPECT_EQ(readablePart("/db/in/-rf.png"), "_-rf.png");
    EXPECT_EQ(readablePart("/db/in/..hidden.png"), "_..hidden.png");
    EXPECT_EQ(readablePart("/db/in/.png"), "_.png");
    EXPECT_EQ(readablePart("/db/in/W\xe4ldchen.png"), "W_ldchen.png");  // is not UTF-8
    EXPECT_EQ(readablePart("/db/in/a\u202egnp.png"), "a___gnp.png");    // turns the direction of writing
    EXPECT_EQ(readablePart("/db/in/a.\x01\x02"), "a.__");
}

TEST(TexturePlaces, CutNamesThatAreTooLong) {
    EXPECT_EQ(readablePart("/db/in/" + std::string(251, 'x') + ".png"), std::string(100, 'x') + ".png");
    EXPECT_EQ(readablePart("/db/in/" + std::string(99, 'x') + "ää.png"), std::string(99, 'x') + ".png");
    EXPECT_EQ(readablePart("/db/in/a." + std::string(250, 'y')), "a." + std::string(19, 'y'));
    EXPECT_NE(nameFor("/db/in/" + std::string(250, 'x') + "1.png"),
              nameFor("/db/in/" + std::string(250, 'x') + "2.png"));
}

TEST(TexturePlaces, GatherInAFolderNamedAfterTheOutput) {
    EXPECT_EQ(gatheringFolder("/out/world.ive"), "/out/world.textures");
    EXPECT_EQ(gatheringFolder("/out/a.b.IVE"), "/out/a.b.textures");
    EXPECT_EQ(gatheringFolder("/out/" + std::string(246, 'x') + ".ive"), "/out/" + std::string(246, 'x') + ".textures");
    const std::string cut = gatheringFolder("/out/" + std::string(247, 'x') + ".ive").string();
    EXPECT_EQ(cut.substr(0, 106), "/out/" + std::string(100, 'x') + "-");
    EXPECT_EQ(cut.substr(122), ".textures");
    EXPECT_NE(gatheringFolder("/out/" + std::string(247, 'x') + ".ive"),
              gatheringFolder("/out/" + std::string(248, 'x') + ".ive"));
}

TEST(TexturePlaces, AreMirroredOrGatheredAsTheModeSays) {
    const TextureFolders mirrored = {TextureMode::Relative, "/in", "/out", "/out/m.textures"};
    EXPECT_EQ(usualPlace(mirrored, "/in/a/x.png"), "/out/a/x.png");
    EXPECT_EQ(usualPlace(mirrored, "/common/x.png"), "/out/_parent/common/x.png");
    EXPECT_EQ(usualPlace(mirrored, "/out/y/x.png"), "/out/y/x.png");
    const TextureFolders gathered = {TextureMode::Copy, "/in", "/out", "/out/m.textures"};
    for (const char* texture : {"/in/a/x.png", "/common/x.png", "/out/y/x.png"})
        EXPECT_EQ(usualPlace(gathered, texture), "/out/m.textures/" + gatheredName("/in", texture));
}

TEST(TexturePlaces, HaveModesWithNames) {
    EXPECT_EQ(nameOf(TextureMode::Relative), "relative");
    EXPECT_EQ(nameOf(TextureMode::Copy), "copy");
    EXPECT_EQ(nameOf(TextureMode::Embed), "embed");
    EXPECT_EQ(textureModes().size(), 3u);
}
