// Memory refused: a model whose declared shapes ask for more memory than the process may have
// (4 TiB per layer) ends in the standard allocation error on either engine, not in an abort.
#include "tests/faults/faults.hpp"

namespace t = kel::test;

namespace {

TEST(Memory, AModelAskingForMoreThanThereIsIsRefused) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "AddressSanitizer's operator new reports a refused request and ends the program";
#endif
    t::EngineWithEarlierNetwork fixture;
    for (const char* engine : {"WindowsML", "OpenVINO"}) {
        SCOPED_TRACE(engine);
        const std::string text = t::thrownText([&] {
            fixture.engine.createNetwork(engine, "huge", "CPU", std::vector<std::string>{t::onnxModel("huge.onnx").string()}, {});
        });
        EXPECT_NE(text.find("std::bad_alloc"), std::string::npos) << text;
        fixture.expectUntouched();
    }
}

}  // namespace
