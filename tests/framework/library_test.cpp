#include <gtest/gtest.h>

#include <string>

#include "framework/version.h"
#include "host/version.h"

namespace {

// The render model and the host it runs on are built together; a renderer
// that loads a mismatched pair would misread every data block.
TEST(RenderModelLibrary, LoadsAgainstTheHostItWasBuiltWith) {
    EXPECT_EQ(std::string(OrvoRenderModelVersion()), std::string(OrvoHostVersion()));
}

} // namespace
