#ifndef VES_TOOLS_MEMORY_METER_H
#define VES_TOOLS_MEMORY_METER_H

namespace VesTools {

/// The most memory that this process has taken since the meter was made, in bytes; 0 where the
/// system does not tell.
class MemoryMeter {
public:
  MemoryMeter();
  double Taken() const;

private:
  double m_before;
};

} // namespace VesTools

#endif
