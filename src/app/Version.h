#pragma once

namespace zl {

inline constexpr char kAppName[] = "zephyrlake";
inline constexpr char kOrganisationName[] = "xx0abc";
// The source revision the program identifies itself with.
inline constexpr char kAppVersion[] = "617f06ff";

} // namespace zl
