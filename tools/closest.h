#ifndef VES_TOOLS_CLOSEST_H
#define VES_TOOLS_CLOSEST_H

#include <string>
#include <vector>

namespace VesTools {

/// " (did you mean NAME?)" for the name that somebody may have meant by a word: the one with fewest
/// letters changed, missing, added or swapped, if they are few, or one that begins as the word
/// does; else nothing.
std::string DidYouMean(const std::string& word, const std::vector<std::string>& names);

} // namespace VesTools

#endif
