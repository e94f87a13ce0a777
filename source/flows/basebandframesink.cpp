#include "flows/basebandframesink.h"

#include "flows/basebandframe.h"

bool BasebandFrameSink::acceptsFrame(ReferencePtr<Frame> cFrame) {
    return cFrame == nullptr || dynamic_cast<BasebandFrame*>(cFrame.get()) != nullptr;
}
