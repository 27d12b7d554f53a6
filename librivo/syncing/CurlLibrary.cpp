#include "librivo/syncing/CurlLibrary.h"

#include <dlfcn.h>

#include <mutex>
#include <type_traits>

namespace rivo {

namespace {

constexpr const char* kFileName = "libcurl.so.4";

}  // namespace

const CurlLibrary* CurlLibrary::get(std::string* error) {
  static CurlLibrary library;
  static std::string failure;
  static bool loaded = false;
  static std::once_flag once;
  std::call_once(once, [] { loaded = library._load(&failure); });
  if (!loaded) {
    if (error) *error = failure;
    return nullptr;
  }
  return &library;
}

bool CurlLibrary::_load(std::string* error) {
  void* handle = dlopen(kFileName, RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    const char* reason = dlerror();
    *error = std::string("Syncing needs the library ") + kFileName +
             " (Debian package libcurl4), which could not be loaded" +
             (reason ? std::string(": ") + reason : std::string()) + ".";
    return false;
  }
  bool complete = true;
  auto resolve = [&](auto& member, const char* name) {
    member = reinterpret_cast<std::remove_reference_t<decltype(member)>>(dlsym(handle, name));
    if (!member && complete) {
      complete = false;
      *error = std::string("The library ") + kFileName + " lacks " + name + ".";
    }
  };
  decltype(&::curl_global_init) global_init = nullptr;
  resolve(global_init, "curl_global_init");
  resolve(easy_init, "curl_easy_init");
  resolve(easy_setopt, "curl_easy_setopt");
  resolve(easy_perform, "curl_easy_perform");
  resolve(easy_getinfo, "curl_easy_getinfo");
  resolve(easy_cleanup, "curl_easy_cleanup");
  resolve(easy_strerror, "curl_easy_strerror");
  resolve(slist_append, "curl_slist_append");
  resolve(slist_free_all, "curl_slist_free_all");
  if (!complete) return false;
  // Kept loaded until exit: the object's members point into it.
  if (global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
    *error = std::string("The library ") + kFileName + " could not start.";
    return false;
  }
  return true;
}

}  // namespace rivo
