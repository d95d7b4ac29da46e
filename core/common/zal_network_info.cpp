// The exported functions for addresses, ports and sockets. Every function is for any thread; the process's names of
// addresses are the only state. The rooms: name_cache.cpp for those names, socket_table.cpp for the walk through /proc.
#include <netdb.h>
#include <zal/zal_json.h>
#include <zal/zal_runtime.h>
#include <zal/zal_system.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <span>

#include "common/zal_network_info/name_cache.hpp"
#include "common/zal_network_info/socket_table.hpp"
#include "support/services.hpp"
#include "support/text.hpp"

using zal::network::kUnknown;
using zal::network::SocketTable;

namespace {

int askSystem(in_addr address, std::span<char> name) noexcept {
  sockaddr_in socket{};
  socket.sin_family = AF_INET;
  socket.sin_addr = address;
  return getnameinfo(reinterpret_cast<const sockaddr*>(&socket), sizeof socket, name.data(),
                     static_cast<socklen_t>(name.size()), nullptr, 0, 0);
}

constinit zal::network::NameCache addressNames{{.nameOf = askSystem, .now = ZAL_GetTimestamp}};

/// False when the port has no name, or none that fits.
bool copyServiceName(int32_t port, const char* protocol, char* buffer, size_t size) noexcept {
  if (port <= 0 || port > std::numeric_limits<uint16_t>::max()) return false;
  const std::unique_ptr<zal::ServiceReader> services{new (std::nothrow) zal::ServiceReader};
  if (!services) {
    std::fprintf(stderr, "Failed to calloc() %d bytes for buffer \n", 512);
    return false;
  }
  while (const auto service = services->next()) {
    if (service->port != port || (protocol != nullptr && service->protocol != protocol)) continue;
    zal::copyCut(buffer, service->name, size);
    return service->name.size() < size;
  }
  return false;
}

/// The texts of a record, terminated whatever its caller stored.
struct AddressTexts {
  explicit AddressTexts(const ZAL_AddressInfo& info) noexcept {
    copyField(name, info.name);
    copyField(address, info.address);
    copyField(addressV6, info.addressV6);
  }

  char name[sizeof ZAL_AddressInfo::name + 1];
  char address[sizeof ZAL_AddressInfo::address + 1];
  char addressV6[sizeof ZAL_AddressInfo::addressV6 + 1];

 private:
  template <std::size_t Size>
  static void copyField(char (&text)[Size + 1], const char (&field)[Size]) noexcept {
    zal::copyCut(text, {field, strnlen(field, Size)}, Size + 1);
  }
};

}  // namespace

int ZAL_ConvertDotAddressToDescription(const char* address, char* buffer, size_t size) noexcept {
  return addressNames.describe(address, buffer, size);
}

int ZAL_ConvertPortToDescription(int32_t port, const char* protocol, char* buffer, size_t size) noexcept {
  if (buffer == nullptr) return 0;
  if (!copyServiceName(port, protocol, buffer, size)) zalstrlcpy(buffer, kUnknown, size);
  return 0;
}

int ZAL_ZalObjectAddAddressStructure(const ZAL_AddressInfo* info, const char* key, ZAL_ObjectHandle handle) noexcept {
  if (info == nullptr || key == nullptr || handle == nullptr) return 0;
  const ZAL_ObjectHandle object = ZAL_Object_AddObject(handle, key);
  if (object == nullptr) return 0;
  const AddressTexts texts{*info};
  ZAL_Object_AddString(object, "name", texts.name);
  ZAL_Object_AddString(object, "address", texts.address);
  if (*texts.addressV6 != '\0') {
    ZAL_Object_AddString(object, "addressV6", texts.addressV6);
  } else {
    ZAL_Object_AddNull(object, "addressV6");
  }
  ZAL_Object_AddInt32(object, "port", info->port);
  return 0;
}

int ZAL_JsonAddAddressStructure(const ZAL_AddressInfo* info, const char* key, const char* filterA, const char* filterB,
                                cJSON* parent, cJSON* top) noexcept {
  if (info == nullptr || key == nullptr || filterA == nullptr || parent == nullptr || top == nullptr) return 0;
  cJSON* const object = json_AddObject(parent, filterA, filterB, top, key);
  if (object == nullptr) return 0;
  const AddressTexts texts{*info};
  json_AddString(object, filterA, filterB, top, "name", texts.name);
  json_AddString(object, filterA, filterB, top, "address", texts.address);
  json_AddStringOrNull(object, filterA, filterB, top, "addressV6", texts.addressV6);
  json_AddNumber(object, filterA, filterB, top, "port", info->port);
  return 0;
}

int ZAL_GatherProcPids(ZAL_ProcSocketEntry* table) noexcept {
  if (table != nullptr) zal::network::gatherProcesses(SocketTable{table, ZAL_PROC_SOCKET_ENTRIES});
  return 0;
}

int ZAL_GatherProcPidsSymlinks(ZAL_ProcSocketEntry* table) noexcept {
  if (table != nullptr) zal::network::gatherSockets(SocketTable{table, ZAL_PROC_SOCKET_ENTRIES});
  return 0;
}

int ZAL_FindInodeSocket(uint32_t inode, const ZAL_ProcSocketEntry* table) noexcept {
  if (table == nullptr) return -1;
  const auto used = zal::network::usedPart(table);
  const auto holder = std::ranges::find_if(used, [&](const ZAL_ProcSocketEntry& entry) {
    return std::ranges::find(entry.sockets, inode) != std::end(entry.sockets);
  });
  return holder == used.end() ? -1 : static_cast<int>(holder - used.begin());
}

int ZAL_FindSocketIdx(const ZAL_ProcSocketEntry* table, int32_t index, uint32_t inode) noexcept {
  if (table == nullptr || inode == 0 || index < 0 || index >= ZAL_PROC_SOCKET_ENTRIES) return -1;
  const auto& sockets = table[index].sockets;
  const auto* const slot = std::ranges::find(sockets, inode);
  return slot == std::end(sockets) ? -1 : static_cast<int>(slot - std::begin(sockets));
}
