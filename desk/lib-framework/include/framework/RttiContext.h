#pragma once

#include <array>
#include <cstddef>
#include <string>

/**
 * Named run-time types. Each constructor level of a hierarchy enables its own name, so that an
 * object answers for every level; downcasts are a test by `isType` and a static cast.
 */
class RttiContext {
public:
    /** Whether `type` was enabled, compared by content. */
    virtual bool isType(const std::string& type) const;

    /**
     * Adds a name. The string is kept by address and must live as long as the object: pass the
     * class's `RTTI_TYPE`. Stops the process beyond `MAX_LEVELS` names.
     */
    virtual void enableRtti(const std::string& type);

    virtual ~RttiContext() = default;

protected:
    RttiContext() = default;
    RttiContext(const RttiContext&) = delete;
    RttiContext& operator=(const RttiContext&) = delete;

private:
    static constexpr size_t MAX_LEVELS = 4;

    std::array<const std::string*, MAX_LEVELS> mTypes{};
    size_t mLevels = 0;
};
