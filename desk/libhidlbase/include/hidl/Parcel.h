#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <hidl/HidlSupport.h>

namespace hal {

class Connection;

/**
 * The arguments of one call, to write or to read. Native byte order, nothing between values:
 *
 *     integer    its bytes
 *     string     u32 length, then the bytes
 *     vec<T>     u32 count, then the elements
 *     T[N]       the N elements
 *     struct     the members in order
 *     handle     u32 count of its descriptors, which go along; null is one without
 *     interface  u32 id: 0 null, otherwise what `Connection::exportObject` gave
 *
 * Small contents take no allocation. A read that would pass the end returns false, and nothing
 * after it can be relied on. Used by one thread at a time.
 */
class Parcel {
public:
    /** Room that the transport's own header takes in front of the content. */
    static constexpr size_t HEADER_SIZE = 16;

    /** Empty, to be written; interface arguments need the connection that it will go over. */
    explicit Parcel(Connection* connection = nullptr) : mConnection(connection) {}

    /** Reads bytes that stand elsewhere and have to stay there meanwhile. */
    Parcel(Connection* connection, const uint8_t* data, size_t size)
        : mConnection(connection), mView(data), mSize(size) {}

    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;

    Connection* connection() const { return mConnection; }
    const uint8_t* data() const { return mView != nullptr ? mView : mFrame + HEADER_SIZE; }
    size_t size() const { return mSize; }

    void writeBytes(const void* bytes, size_t size);
    void writeString(std::string_view text);

    /** Writes an integer, the count of a vector or an interface id. */
    template <class Integer>
    void write(Integer value) {
        static_assert(std::is_integral_v<Integer>);
        writeBytes(&value, sizeof(value));
    }

    [[nodiscard]] bool readBytes(void* bytes, size_t size);
    [[nodiscard]] bool readString(std::string* text);

    /** Reads an integer or an interface id. */
    template <class Integer>
    [[nodiscard]] bool read(Integer* value) {
        static_assert(std::is_integral_v<Integer>);
        return readBytes(value, sizeof(*value));
    }

    /**
     * Reads the count of a vector.
     *
     * @param elementSize bytes that one element takes at least; a count that cannot fit into what
     *        is left fails, so that nothing is allocated for it
     */
    [[nodiscard]] bool readCount(size_t* count, size_t elementSize);

    /** Everything was read. A receiver checks this before it acts on what it read. */
    bool atEnd() const { return mRead == mSize; }

    /** A descriptor that goes along, the caller's until the parcel was sent. */
    void attach(int descriptor) { mDescriptors.push_back(descriptor); }
    const std::vector<int>& descriptors() const { return mDescriptors; }

    /** Header room and content in one piece, to be sent: `HEADER_SIZE + size()` bytes. */
    uint8_t* frame();

private:
    void grow(size_t size);

    Connection* mConnection;
    const uint8_t* mView = nullptr;  ///< foreign content, as long as nothing was written
    size_t mSize = 0;
    size_t mRead = 0;
    std::vector<int> mDescriptors;
    size_t mCapacity = INLINE_SIZE;
    uint8_t* mFrame = mInline;
    std::unique_ptr<uint8_t[]> mHeap;

    static constexpr size_t INLINE_SIZE = 256;
    uint8_t mInline[HEADER_SIZE + INLINE_SIZE];
};

// One pair of functions per type; the generator adds a pair for each struct and each interface.

template <class Integer, class = std::enable_if_t<std::is_integral_v<Integer>>>
void encode(Parcel& parcel, Integer value) {
    parcel.write(value);
}

template <class Integer, class = std::enable_if_t<std::is_integral_v<Integer>>>
[[nodiscard]] bool decode(Parcel& parcel, Integer& value) {
    return parcel.read(&value);
}

void encode(Parcel& parcel, const android::hardware::hidl_string& text);
[[nodiscard]] bool decode(Parcel& parcel, android::hardware::hidl_string& text);

/** Sends a handle's descriptors; the integers that it may hold as well are not sent. */
void encode(Parcel& parcel, const android::hardware::hidl_handle& handle);
[[nodiscard]] bool decode(Parcel& parcel, android::hardware::hidl_handle& handle);

template <class T>
void encodeElements(Parcel& parcel, const T* elements, size_t count) {
    if constexpr (std::is_integral_v<T>) {
        parcel.writeBytes(elements, count * sizeof(T));
    } else {
        for (size_t i = 0; i < count; ++i) {
            encode(parcel, elements[i]);
        }
    }
}

template <class T>
[[nodiscard]] bool decodeElements(Parcel& parcel, T* elements, size_t count) {
    if constexpr (std::is_integral_v<T>) {
        return parcel.readBytes(elements, count * sizeof(T));
    } else {
        for (size_t i = 0; i < count; ++i) {
            if (!decode(parcel, elements[i])) {
                return false;
            }
        }
        return true;
    }
}

template <class T>
void encode(Parcel& parcel, const android::hardware::hidl_vec<T>& elements) {
    parcel.write(static_cast<uint32_t>(elements.size()));
    encodeElements(parcel, elements.data(), elements.size());
}

template <class T>
[[nodiscard]] bool decode(Parcel& parcel, android::hardware::hidl_vec<T>& elements) {
    constexpr bool text = std::is_same_v<T, android::hardware::hidl_string>;
    size_t count = 0;
    if (!parcel.readCount(&count, std::is_integral_v<T> ? sizeof(T) : text ? 4 : 1)) {
        return false;
    }
    elements.resize(count);
    return decodeElements(parcel, elements.data(), count);
}

template <class T, size_t N>
void encode(Parcel& parcel, const android::hardware::hidl_array<T, N>& elements) {
    encodeElements(parcel, elements.data(), N);
}

template <class T, size_t N>
[[nodiscard]] bool decode(Parcel& parcel, android::hardware::hidl_array<T, N>& elements) {
    return decodeElements(parcel, elements.data(), N);
}

}  // namespace hal
