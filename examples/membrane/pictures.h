#ifndef MEMBRANE_PICTURES_H
#define MEMBRANE_PICTURES_H

#include <string>
#include <vector>

/// A mode of vibration on the nodes of the whole square, line by line from below.
struct Mode {
  double value;
  std::vector<double> heights;
};

/// Draws the modes side by side, three in a row. \return whether the file could be written
bool DrawModes(const std::string& file, const std::vector<Mode>& modes, int pitch);

#endif
