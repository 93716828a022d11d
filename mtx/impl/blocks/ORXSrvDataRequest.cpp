#include "mtx/ORXSrvDataRequest.h"

ORXSrvDataRequest::ORXSrvDataRequest() noexcept = default;
ORXSrvDataRequest::~ORXSrvDataRequest() = default;
