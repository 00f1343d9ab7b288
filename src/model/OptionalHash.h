#pragma once

#include <QHashFunctions>

#include <optional>

// Hash of an optional value in which "none" is its own marker, distinct from
// the hash input of every present value.
template <typename T>
size_t qHashOptional(const std::optional<T> &value, size_t seed = 0)
{
    if (!value)
        return qHash(false, seed);
    using QT_PREPEND_NAMESPACE(qHash);
    return qHashMulti(seed, true, *value);
}
