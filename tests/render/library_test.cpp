#include <gtest/gtest.h>

#include <string>

#include "framework/version.h"
#include "render/version.h"

namespace {

TEST(RendererLibrary, LoadsAgainstTheRenderModelItWasBuiltWith) {
    EXPECT_EQ(std::string(OrvoRenderVersion()), std::string(OrvoRenderModelVersion()));
}

} // namespace
