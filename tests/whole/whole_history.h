/// @file
/// Long histories over the whole public interface, foretold by a tree in memory.
#ifndef AOSTORAGE_TESTS_WHOLE_WHOLE_HISTORY_H_
#define AOSTORAGE_TESTS_WHOLE_WHOLE_HISTORY_H_

#include <functional>
#include <string>

namespace aostorage::testing {

/// @param draw  gives numbers below the one given; they decide everything
/// @param goOn  asked before each step
/// @param stepsBetweenLooks  how often the bytes of the files are compared; they are at the end
/// @return the last steps, if anything was not as foretold (a GoogleTest failure tells what), else
///         nothing
std::string RunWholeHistory(std::function<unsigned(unsigned below)> draw,
                            const std::function<bool()>& goOn, int stepsBetweenLooks = 1);

}  // namespace aostorage::testing

#endif  // AOSTORAGE_TESTS_WHOLE_WHOLE_HISTORY_H_
