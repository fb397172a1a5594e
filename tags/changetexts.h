#pragma once
// The reasons an engine gives when a file change failed part-way: the file
// was put back, or it couldn't be.

inline constexpr char16_t kChangeRestored[] =
    u"A read or write failed while the file was being changed; it was restored as it was.";
inline constexpr char16_t kChangeDamaged[] =
    u"A read or write failed while the file was being changed, and restoring it failed too: the file is damaged.";
