// SPDX-License-Identifier: MIT
#pragma once

#include <umockdev.h>

#include <cstring>
#include <memory>

namespace vornsim {

struct ObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};

/// A reference to an umockdev object.
template <typename T>
using ObjectRef = std::unique_ptr<T, ObjectUnref>;

/// Fetches @p length bytes of the host program's memory from where the pointer at @p offset of @p parent points. What
/// is changed in them goes back to the host when the request is answered. @return null when the memory is not there.
inline ObjectRef<UMockdevIoctlData> resolve(UMockdevIoctlData* parent, size_t offset, size_t length)
{
    return ObjectRef<UMockdevIoctlData>(umockdev_ioctl_data_resolve(parent, offset, length, nullptr));
}

/// @return the bytes at the start of @p data as a T. They are too few for one only when the host is gone.
template <typename T>
T load(const UMockdevIoctlData* data)
{
    T value;
    std::memset(&value, 0, sizeof value);  // not {}, which a record that ends in a flexible array does not allow
    if (data && data->data_len >= static_cast<gint>(sizeof value))
        std::memcpy(&value, data->data, sizeof value);
    return value;
}

/// Replaces the start of @p data by @p value.
template <typename T>
void store(UMockdevIoctlData* data, const T& value)
{
    if (data && data->data_len >= static_cast<gint>(sizeof value))
        std::memcpy(data->data, &value, sizeof value);
}

}  // namespace vornsim
