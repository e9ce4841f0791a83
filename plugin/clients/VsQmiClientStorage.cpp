// NV items, EFS files and PRL: raw access to what the modem stores. Every call is synchronous and
// blocks the client's handler thread until the modem has done it.

#include <algorithm>

#include "clients/VsQmiClient.h"
#include "params/MessageIds.h"
#include "params/Params.h"

namespace {

constexpr size_t NV_ITEM_MAX = 512;
constexpr size_t EFS_FILE_MAX = 10240;
constexpr size_t PRL_MAX = 10240;

/**
 * Reads up to `Size` bytes.
 *
 * @param read gets a zeroed buffer and a pointer to its size, which it replaces by the number of
 *        bytes read; a number above `Size` counts as `Size`
 */
template <size_t Size, class Read>
int readInto(std::vector<uint8_t>& data, Read read) {
    uint8_t buffer[Size] = {};
    size_t length = Size;
    const int result = read(buffer, &length);
    if (result == 0) {
        data.assign(buffer, buffer + std::min(length, Size));
    }
    return result;
}

}  // namespace

int VsQmiClient::readNVItem(int serial, signed char selector1, int item, signed char selector2) {
    return post<NVItemParam>(PostTexts::BY_NAME_SHORT, __func__, VsMessage::READ_NV_ITEM, serial,
                             item, selector1, selector2, std::vector<uint8_t>());
}

int VsQmiClient::handleReadNVItemMessage(const MessagePtr& msg) {
    return serve<NVItemParam>(
            __func__, SYNC_TEXTS, msg, &Proxy::respondReadNVItem,
            [](const auto& request, std::vector<uint8_t>& data) {
                return readInto<NV_ITEM_MAX>(data, [&](uint8_t* buffer, size_t* length) {
                    return modem_read_nv_for_subid(request.selector1, request.item,
                                                   static_cast<uint8_t>(request.selector2), buffer,
                                                   length);
                });
            });
}

int VsQmiClient::writeNVItem(int serial, signed char selector1, int item, signed char selector2,
                             const std::vector<unsigned char>& data) {
    return post<NVItemParam>(PostTexts::BY_NAME_SHORT, __func__, VsMessage::WRITE_NV_ITEM, serial,
                             item, selector1, selector2, data);
}

int VsQmiClient::handleWriteNVItemMessage(const MessagePtr& msg) {
    // The modem's function for writing has no second selector.
    return serve<NVItemParam>(
            __func__, SYNC_TEXTS, msg, &Proxy::respondWriteNVItem, [](const auto& request) {
                return modem_write_nv_for_subid(request.selector1, request.item,
                                                request.data.data(), request.data.size());
            });
}

int VsQmiClient::readEfsFile(int serial, int file, unsigned char subSelector) {
    return post<EfsAccessParam>(PostTexts::BY_NAME_SHORT, __func__, VsMessage::READ_EFS_FILE,
                                serial, file, subSelector, std::vector<uint8_t>());
}

int VsQmiClient::handleReadEfsFileMessage(const MessagePtr& msg) {
    return serve<EfsAccessParam>(
            __func__, SYNC_TEXTS, msg, &Proxy::respondReadEfsFile,
            [](const auto& request, std::vector<uint8_t>& data) {
                return readInto<EFS_FILE_MAX>(data, [&](uint8_t* buffer, size_t* length) {
                    return modem_read_efs_for_subid(request.subSelector, request.file, buffer,
                                                    length);
                });
            });
}

int VsQmiClient::writeEfsFile(int serial, int file, unsigned char subSelector,
                              const std::vector<unsigned char>& data) {
    return post<EfsAccessParam>(PostTexts::BY_NAME_SHORT, __func__, VsMessage::WRITE_EFS_FILE,
                                serial, file, subSelector, data);
}

int VsQmiClient::handleWriteEfsFileMessage(const MessagePtr& msg) {
    return serve<EfsAccessParam>(
            __func__, SYNC_TEXTS, msg, &Proxy::respondWriteEfsFile, [](const auto& request) {
                return modem_write_efs_for_subid(request.subSelector, request.file,
                                                 request.data.data(), request.data.size());
            });
}

int VsQmiClient::deleteEfsFile(int serial, int file, unsigned char subSelector) {
    return post<EfsAccessParam>(PostTexts::BY_NAME_SHORT, __func__, VsMessage::DELETE_EFS_FILE,
                                serial, file, subSelector, std::vector<uint8_t>());
}

int VsQmiClient::handleDeleteEfsFileMessage(const MessagePtr& msg) {
    return serve<EfsAccessParam>(
            __func__, SYNC_TEXTS, msg, &Proxy::respondDeleteEfsFile, [](const auto& request) {
                return modem_del_efs_for_subid(request.subSelector, request.file);
            });
}

int VsQmiClient::readPrl(int serial, unsigned char selector) {
    return sendRequest(serial, VsMessage::READ_PRL, selector);
}

int VsQmiClient::handleReadPrlMessage(const MessagePtr& msg) {
    return serve<SerialByteParam>(
            __func__, SYNC_TEXTS, msg, &Proxy::respondReadPrl,
            [](const auto& request, std::vector<uint8_t>& data) {
                return readInto<PRL_MAX>(data, [&](uint8_t* buffer, size_t* length) {
                    return modem_read_prl(request.value, buffer, length);
                });
            });
}

int VsQmiClient::writePrl(int serial, unsigned char selector,
                          const std::vector<unsigned char>& data) {
    return post<PrlParam>(PostTexts::BY_NAME_SHORT, __func__, VsMessage::WRITE_PRL, serial,
                          selector, data);
}

int VsQmiClient::handleWritePrlMessage(const MessagePtr& msg) {
    return serve<PrlParam>(
            __func__, SYNC_TEXTS, msg, &Proxy::respondWritePrl, [](const auto& request) {
                return modem_write_prl(request.selector, request.data.data(), request.data.size());
            });
}

int VsQmiClient::verifyNV(int serial, int item, const std::vector<unsigned char>& data) {
    return post<NVItemParam>(PostTexts::BY_NAME_SHORT, __func__, VsMessage::VERIFY_NV, serial, item,
                             data);
}

int VsQmiClient::handleVerifyNVMessage(const MessagePtr& msg) {
    return serve<NVItemParam>(
            __func__, SYNC_TEXTS, msg, &Proxy::respondVerifyNV,
            [](const auto& request, uint8_t& verified) {
                modem_nv_verification verification{};
                const int result = modem_verify_nv(request.item, request.data.data(),
                                                   request.data.size(), &verification);
                verified = result == 0 && verification.compared != 0 && verification.differs == 0;
                return result;
            });
}

int VsQmiClient::deleteEfsFileDir(int serial, int directory) {
    return post<EfsAccessParam>(PostTexts::BY_NAME_SHORT, __func__, VsMessage::DELETE_EFS_FILE_DIR,
                                serial, directory, 0U, std::vector<uint8_t>());
}

int VsQmiClient::handleDeleteEfsFileDirMessage(const MessagePtr& msg) {
    return serve<EfsAccessParam>(
            __func__, SYNC_TEXTS, msg, &Proxy::respondDeleteEfsFileDir,
            [](const auto& request) { return modem_del_efs_file_dir(request.file); });
}
