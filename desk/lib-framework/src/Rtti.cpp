#include <framework/Log.h>
#include <framework/Param.h>
#include <framework/RttiContext.h>

#include <algorithm>
#include <cstdlib>

bool RttiContext::isType(const std::string& type) const {
    return std::any_of(mTypes.begin(), mTypes.begin() + mLevels, [&](const std::string* enabled) {
        return enabled == &type || *enabled == type;
    });
}

void RttiContext::enableRtti(const std::string& type) {
    if (mLevels == mTypes.size()) {
        Log::printAndroidLog(LOG_PRIORITY_FATAL, "FRAMEWORK", "%s: no room for type %s", __func__,
                             type.c_str());
        abort();
    }
    mTypes[mLevels++] = &type;
}

// Never destroyed: handlers and callbacks run while the process exits.
const std::string& SerialParam::RTTI_TYPE = *new std::string("SerialParam");
const std::string& SerialVoidParam::RTTI_TYPE = *new std::string("SerialVoidParam");
const std::string& SerialIntParam::RTTI_TYPE = *new std::string("SerialIntParam");
const std::string& SerialUintParam::RTTI_TYPE = *new std::string("SerialUintParam");
const std::string& SerialBoolParam::RTTI_TYPE = *new std::string("SerialBoolParam");
const std::string& SerialByteParam::RTTI_TYPE = *new std::string("SerialByteParam");
const std::string& SerialStringParam::RTTI_TYPE = *new std::string("SerialStringParam");
const std::string& SerialByteArrayParam::RTTI_TYPE = *new std::string("SerialByteArrayParam");
