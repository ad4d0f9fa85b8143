#pragma once
/// The services of the platform that a host meets.
#include "lorvale/platform/exception.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/mutex.h"
