// The library's exported version symbols.
#pragma once

namespace veltrane {

extern const double VeltraneVersionNumber;
// "@(#)PROGRAM:Veltrane  PROJECT:Veltrane-1\n"
extern const unsigned char VeltraneVersionString[];

} // namespace veltrane
