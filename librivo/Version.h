#pragma once
// The program's version and build number (the "bundle version" stored in preferences).

namespace rivo {

inline constexpr const char* kVersion = "1.0.0";
inline constexpr const char* kBundleVersion = "200";

}  // namespace rivo
