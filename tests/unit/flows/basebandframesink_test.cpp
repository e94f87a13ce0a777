#include "flows/basebandframesink.h"

#include "flows/basebandframe.h"
#include "unit/flows/flowsupport.h"

TEST(BasebandFrameSinkTest, HasNoSchemaOfItsOwn) {
    auto cSink = makeReference<BasebandFrameSink>();
    EXPECT_TRUE(cSink->getParameterInfo().empty());
    EXPECT_EQ(cSink->getParameters().size(), 4u);
}

TEST(BasebandFrameSinkTest, TakesBasebandAndTheEndOnly) {
    auto cSink = makeReference<BasebandFrameSink>();
    cSink->receiveFrame(vnktest::iqFrame(1), false);
    EXPECT_TRUE(vnktest::drain(*cSink).empty());
    EXPECT_TRUE(cSink->acceptsFrame(nullptr));
    EXPECT_TRUE(cSink->acceptsFrame(
        makeReference<BasebandFrame>(uint64_t{0}, uint32_t{kNanoseconds}, 44100.0f, 20000.0f)));
}
