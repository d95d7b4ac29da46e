// Scenarios of the runtime foundation, the URIs and the logging.
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "memory/scenario.hpp"

namespace faults {

namespace {

using Mutex = Owned<ZAL_MutexHandle, ZAL_Mutex_Destroy>;
using Cond = Owned<ZAL_CondHandle, ZAL_Cond_Destroy>;
using Uri = Owned<ZAL_UriParserHandle, ZAL_UriParser_Destroy>;

/// A directory for one run.
class Folder {
 public:
  Folder() {
    const Aside aside;
    path_ = std::filesystem::temp_directory_path() / "zal_faults_XXXXXX";
    require(mkdtemp(path_.data()) != nullptr, "a temporary directory");
  }
  ~Folder() {
    const Aside aside;
    std::filesystem::remove_all(path_);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  [[nodiscard]] const char* path() const noexcept { return path_.c_str(); }
  /// A new file in it; its path.
  [[nodiscard]] std::string write(const char* name, const char* text) const {
    const Aside aside;
    std::string path = path_ + '/' + name;
    std::FILE* const file = std::fopen(path.c_str(), "w");
    require(file != nullptr, "a file of the scenario's own");
    std::fputs(text, file);
    std::fclose(file);
    return path;
  }

 private:
  std::string path_;
};

void print(const char* format, ...) __attribute__((format(printf, 1, 2)));
void print(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  FAULTS_REQUIRE(zal_vfprintf(stderr, format, arguments) == 0);
  va_end(arguments);
}

}  // namespace

void runtime() {
  if (const Mutex mutex{FAULTS_ATTEMPT(nullptr, ZAL_Mutex_Create())}) {
    ZAL_Mutex_Lock(mutex.get());
    ZAL_Mutex_Unlock(mutex.get());
  }
  if (const Cond cond{FAULTS_ATTEMPT(nullptr, ZAL_Cond_Create())}) {
    ZAL_Cond_Signal(cond.get());
    FAULTS_REQUIRE(ZAL_Cond_Wait(cond.get(), 0) == 0);
  }
  FAULTS_REQUIRE(ZAL_GetTimestamp() > 0);
  FAULTS_REQUIRE(ZAL_GetUnsignedTimestamp() > 0);
  FAULTS_REQUIRE(timevalToDouble({.tv_sec = 1, .tv_usec = 0}) == 1.0);
  FAULTS_REQUIRE(ZAL_GetDateString() != nullptr);
  ZAL_Sleep(0);
  uv_utsname_t name{};
  FAULTS_REQUIRE(ZAL_Uname(&name) == 0);

  std::array<char, 64> text{};
  FAULTS_REQUIRE(zalstrlcpy(text.data(), "abc", text.size()) == 3);
  FAULTS_REQUIRE(zalstrlcat(text.data(), "def\n", text.size()) == 7);
  ZAL_TrimLine(text.data());
  FAULTS_REQUIRE(std::strcmp(text.data(), "abcdef") == 0);
  FAULTS_REQUIRE(ZAL_CheckForSpecialTag("range") == 1);
  FAULTS_REQUIRE(ZAL_RoundUp512(1) == std::uint64_t{512} << 20U);
  FAULTS_REQUIRE(ZAL_GetIpFromIfName("lo", text.data(), text.size()) == 0);
  ZAL_ReadRandom(text.data(), 8);
  FAULTS_REQUIRE(zbase64_encode("abc", 3, text.data(), text.size()) == 4);
  std::array<char, 8> bytes{};
  FAULTS_REQUIRE(zbase64_decode(text.data(), 4, bytes.data(), bytes.size()) == 3);
}

void files() {
  const Folder folder;
  const std::string path = folder.write("number", "42\n");
  const Text content{FAULTS_ATTEMPT(nullptr, ZAL_GetFileContent(path.c_str()))};
  FAULTS_REQUIRE(!content || std::strcmp(content.get(), "42\n") == 0);
  std::size_t count = 0;
  const Owned<void*, std::free> bytes{FAULTS_ATTEMPT(nullptr, ZAL_GetFileContentBinary(path.c_str(), &count))};
  FAULTS_REQUIRE(bytes == nullptr || count == 3);
  const Text status{FAULTS_ATTEMPT(nullptr, ZAL_GetFileContentProc("/proc/self/status", 512))};
  FAULTS_REQUIRE(!status || std::strlen(status.get()) == 511);

  FAULTS_REQUIRE(ZAL_IsRegularFile(path.c_str()) == 1);
  FAULTS_REQUIRE(ZAL_GetFileSize(path.c_str()) == 3);
  std::uint32_t number = 0;
  FAULTS_REQUIRE(FAULTS_ATTEMPT(-1, sysfs_get(folder.path(), "number", &number)) == -1 || number == 42);
  static_cast<void>(FAULTS_ATTEMPT(-1, sysfs_set(folder.path(), "number", 43)));
  FAULTS_REQUIRE(ZAL_GetTempDir() != nullptr);
  std::array<char, 64> prepended{};
  ZAL_PrependTempDir(prepended.data(), prepended.size(), "name");
  FAULTS_REQUIRE(std::strstr(prepended.data(), "/name") != nullptr);
}

void uris() {
  constexpr char kUri[] = "tcp://127.0.0.1:80/service/path?include=a+b&range=1:2";
  std::array<char, 64> text{};
  if (const Uri uri{FAULTS_ATTEMPT(nullptr, ZAL_UriParser_Create(kUri))}) {
    ZAL_UriParser_GetHost(uri.get(), text.data(), text.size());
    FAULTS_REQUIRE(std::strcmp(text.data(), "127.0.0.1") == 0);
    std::int32_t port = 0;
    FAULTS_REQUIRE(ZAL_UriParser_GetPortNumber(uri.get(), &port) == ZAL_URI_OK && port == 80);
    ZAL_UriParser_GetRootName(uri.get(), text.data(), text.size());
    FAULTS_REQUIRE(std::strcmp(text.data(), "service") == 0);
    ZAL_UriParser_GetPath(uri.get(), text.data(), text.size());
    FAULTS_REQUIRE(std::strcmp(text.data(), "service/path") == 0);
    ZAL_UriParser_GetPathQuery(uri.get(), text.data(), text.size());
    FAULTS_REQUIRE(std::strncmp(text.data(), "path?include", 12) == 0);
    FAULTS_REQUIRE(ZAL_UriParser_FindTagValue(uri.get(), "range", text.data(), text.size()) == 1);
  }
  FAULTS_REQUIRE(vorn_uri_decode("a%41", text.data(), text.size()) == 0 && std::strcmp(text.data(), "aA") == 0);
  vorn_uri_parts parts{};
  FAULTS_REQUIRE(vorn_uri_parse("http://host/path?query=1", &parts) == 0);
  FAULTS_REQUIRE(std::strcmp(parts.path, "/path") == 0);
  FAULTS_REQUIRE(vorn_uri_getPathQuery(&parts, text.data(), text.size()) > 0);
  FAULTS_REQUIRE(vorn_uri_get_plugin_name(kUri, text.data(), text.size()) == 0);
  FAULTS_REQUIRE(vorn_uri_find_tag(kUri, "range") == 1);
  FAULTS_REQUIRE(vorn_uri_find_tagvalue(kUri, "range", text.data(), text.size()) == 1);
}

void logging() {
  Log_PrintMessage(ZAL_LOG_ERROR, "module", __LINE__, __func__, "a line\n");
  FAULTS_REQUIRE(zal_fprintf(stderr, "%s\n", "a text") == 0);
  print("%s\n", "a text");
  Log_HexDump("0123456789abcdefg", 17);
  ZAL_Log_SetLevel(ZAL_Log_GetLevel());
  ZAL_Log_CheckEnv();

  const Folder folder;
  static_cast<void>(FAULTS_ATTEMPT(-1, ZAL_Log_SetDirectory(folder.path())));
  ZAL_Log_SetFileMaxBytes(64);
  ZAL_Log_SetFileMaxFiles(1);
  constexpr int kRotations = 3;
  for (int i = 0; i < kRotations; ++i) {
    print("%0600d\n", i);  // longer than what a line is formatted in
    ZAL_Log_FileClose(nullptr);
    ZAL_Log_FileClose("other");
  }
}

}  // namespace faults
