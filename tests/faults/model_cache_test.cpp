// The model cache: OpenVINO networks for devices other than the processor keep compiled blobs
// in CACHE_DIR. A directory that cannot be made is refused with the file system's reason; one
// that cannot be written to, or damaged blobs, only cost the runtime a fresh compilation.
#include <functional>
#include <random>

#include "tests/faults/faults.hpp"

namespace t = kel::test;

namespace {

const char* kFrom = "modules/openvino/vino_properties.cpp";

TEST(ModelCache, ADirectoryThatCannotBeMadeIsRefusedWithTheReason) {
    const std::filesystem::path file = t::openvinoModel("static.xml");
    const std::filesystem::path longName = std::filesystem::temp_directory_path() / std::string(300, 'n');
    const std::filesystem::path longPath = std::filesystem::temp_directory_path() / std::string(5000, 'p');
    const std::vector<std::pair<std::filesystem::path, std::string>> cases{
        {file, "Not a directory [" + file.string() + "]"},
        // sysfs takes no new directories, not even from root.
        {"/sys/kel-cache", "Operation not permitted [/sys/kel-cache]"},
        {longName, "File name too long [" + longName.string() + "]"},
        {longPath, "File name too long [" + longPath.string() + "]"},
    };
    t::EngineWithEarlierNetwork fixture;
    for (const auto& [directory, reason] : cases) {
        SCOPED_TRACE(directory.string().substr(0, 60));
        EXPECT_EQ(t::kelMessageFrom(kFrom, [&] {
                      fixture.engine.createNetwork("OpenVINO", "cached", "AUTO", t::staticIr(), {{"CACHE_DIR", directory}});
                  }),
                  "filesystem error: cannot create directories: " + reason);
        fixture.expectUntouched();
    }
}

void createCachedAndCompare(t::EngineWithEarlierNetwork& fixture, const std::filesystem::path& cache) {
    fixture.engine.createNetwork("OpenVINO", "cached", "AUTO", t::staticIr(), {{"CACHE_DIR", cache}});
    fixture.expectWorksThenRemove("cached");
}

TEST(ModelCache, DamagedBlobsOrAnUnwritableDirectoryOnlyCostACompilation) {
    t::TempDir scratch;
    const std::filesystem::path cache = scratch / "cache";
    std::mt19937 random(17);
    auto randomBytes = [&random](std::size_t n) {
        std::string bytes(n, '\0');
        for (char& c : bytes) c = static_cast<char>(random());
        return bytes;
    };
    const std::vector<std::pair<const char*, std::function<std::string(const std::string&)>>> damages{
        {"truncated", [](const std::string& blob) { return blob.substr(0, blob.size() / 2); }},
        {"emptied", [](const std::string&) { return std::string(); }},
        {"random bytes", [&](const std::string& blob) { return randomBytes(blob.size()); }},
        {"a few random bytes", [&](const std::string&) { return randomBytes(16); }},
    };
    t::EngineWithEarlierNetwork fixture;
    createCachedAndCompare(fixture, cache);
    ASSERT_FALSE(t::filesUnder(cache).empty()) << "the runtime wrote no blob to damage";
    for (const auto& [what, damage] : damages) {
        SCOPED_TRACE(what);
        for (const auto& blob : t::filesUnder(cache)) t::writeFile(blob, damage(t::readFile(blob)));
        createCachedAndCompare(fixture, cache);
    }
    // An existing directory nobody may write to, root included.
    createCachedAndCompare(fixture, "/sys");
}

}  // namespace
