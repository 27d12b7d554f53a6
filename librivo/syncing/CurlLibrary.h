#pragma once
// libcurl, opened with dlopen when a sync first needs it: linked in, it and the libraries it
// pulls in would be loaded and relocated at the start of every command. The members keep
// curl's own prototypes, so calls through them are checked as direct calls would be.
//
// get() opens and initialises the library once per process; any thread may call it. The
// library stays loaded until exit, and the returned object is never changed after, so it may
// be used from any thread.

#include <curl/curl.h>

#include <string>

namespace rivo {

class CurlLibrary {
 public:
  // The loaded library, or nullptr with the reason in `error`. A failure is remembered: the
  // library is not looked for again.
  static const CurlLibrary* get(std::string* error);

  decltype(&::curl_easy_init) easy_init = nullptr;
  decltype(&::curl_easy_setopt) easy_setopt = nullptr;
  decltype(&::curl_easy_perform) easy_perform = nullptr;
  decltype(&::curl_easy_getinfo) easy_getinfo = nullptr;
  decltype(&::curl_easy_cleanup) easy_cleanup = nullptr;
  decltype(&::curl_easy_strerror) easy_strerror = nullptr;
  decltype(&::curl_slist_append) slist_append = nullptr;
  decltype(&::curl_slist_free_all) slist_free_all = nullptr;

 private:
  CurlLibrary() = default;
  // Opens the library and resolves every member; the reason of a failure goes to `error`.
  bool _load(std::string* error);
};

}  // namespace rivo
