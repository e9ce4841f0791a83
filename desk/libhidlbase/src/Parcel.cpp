#include <hidl/Parcel.h>
#include <hidl/Transport.h>

#include <algorithm>
#include <cstring>

namespace hal {

void Parcel::grow(size_t size) {
    const size_t capacity = std::max(size, 2 * mCapacity);
    std::unique_ptr<uint8_t[]> heap(new uint8_t[HEADER_SIZE + capacity]);
    std::copy_n(data(), mSize, heap.get() + HEADER_SIZE);
    mHeap = std::move(heap);
    mFrame = mHeap.get();
    mCapacity = capacity;
    mView = nullptr;
}

uint8_t* Parcel::frame() {
    if (mView != nullptr) {
        grow(mSize);
    }
    return mFrame;
}

void Parcel::writeBytes(const void* bytes, size_t size) {
    if (mView != nullptr || size > mCapacity - mSize) {
        grow(mSize + size);
    }
    if (size != 0) {
        memcpy(mFrame + HEADER_SIZE + mSize, bytes, size);
        mSize += size;
    }
}

void Parcel::writeString(std::string_view text) {
    write(static_cast<uint32_t>(text.size()));
    writeBytes(text.data(), text.size());
}

bool Parcel::readBytes(void* bytes, size_t size) {
    if (size > mSize - mRead) {
        return false;
    }
    if (size != 0) {
        memcpy(bytes, data() + mRead, size);
        mRead += size;
    }
    return true;
}

bool Parcel::readCount(size_t* count, size_t elementSize) {
    uint32_t value = 0;
    if (!read(&value) || value > (mSize - mRead) / elementSize) {
        return false;
    }
    *count = value;
    return true;
}

bool Parcel::readString(std::string* text) {
    size_t size = 0;
    if (!readCount(&size, 1)) {
        return false;
    }
    text->assign(reinterpret_cast<const char*>(data()) + mRead, size);
    mRead += size;
    return true;
}

void encode(Parcel& parcel, const android::hardware::hidl_string& text) {
    parcel.writeString({text.c_str(), text.size()});
}

bool decode(Parcel& parcel, android::hardware::hidl_string& text) {
    std::string content;
    if (!parcel.readString(&content)) {
        return false;
    }
    text = content;
    return true;
}

void encode(Parcel& parcel, const android::hardware::hidl_handle& handle) {
    const native_handle_t* native = handle.getNativeHandle();
    const int count = native != nullptr ? native->numFds : 0;
    parcel.write(count);
    for (int i = 0; i < count; ++i) {
        parcel.attach(native->data[i]);
    }
}

bool decode(Parcel& parcel, android::hardware::hidl_handle& handle) {
    uint32_t count = 0;
    if (!parcel.read(&count) || count > MAX_DESCRIPTORS) {
        return false;
    }
    handle = nullptr;
    if (count == 0) {
        return true;
    }
    native_handle_t* native = native_handle_create(static_cast<int>(count), 0);
    if (native == nullptr) {
        return false;
    }
    native->numFds = 0;
    handle.setTo(native, true);
    for (; count != 0; --count) {
        const int descriptor = parcel.connection()->takeDescriptor();
        if (descriptor < 0) {
            return false;
        }
        native->data[native->numFds++] = descriptor;
    }
    return true;
}

}  // namespace hal
