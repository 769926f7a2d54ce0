#include "platform/CArray.h"

IMPLEMENT_SERIAL(CDWordArray, CObject, 0)

CDWordArray::~CDWordArray() = default;
