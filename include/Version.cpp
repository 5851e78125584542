// The library's exported version symbols.
#include "veltrane/Version.h"

namespace veltrane {

const double VeltraneVersionNumber = 1.0;
const unsigned char VeltraneVersionString[] = "@(#)PROGRAM:Veltrane  PROJECT:Veltrane-1\n";

} // namespace veltrane
