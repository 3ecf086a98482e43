#include "IDataSetReader.h"

namespace ptCloud {
IDataSetReader::~IDataSetReader() = default;
}
