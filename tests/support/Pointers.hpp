#pragma once

#include <vector>

namespace Torvo::test {

/// Pointers to the elements, as the operations on several ciphertexts take them.
template <class T>
std::vector<const T*> pointersTo(const std::vector<T>& objects) {
    std::vector<const T*> pointers;
    for (const T& object : objects) pointers.push_back(&object);
    return pointers;
}
template <class T>
std::vector<T*> pointersTo(std::vector<T>& objects) {
    std::vector<T*> pointers;
    for (T& object : objects) pointers.push_back(&object);
    return pointers;
}

} // namespace Torvo::test
