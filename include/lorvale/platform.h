#pragma once
/// The services of the platform that a host meets.
#include "lorvale/platform/exception.h"
#include "lorvale/platform/localization.h"
#include "lorvale/platform/log.h"
#include "lorvale/platform/mutex.h"
#include "lorvale/platform/notification.h"
#include "lorvale/platform/paths.h"
#include "lorvale/platform/run_loop.h"
#include "lorvale/platform/subprocess.h"
#include "lorvale/platform/thread.h"
#include "lorvale/platform/user_agent.h"
#include "lorvale/platform/user_defaults.h"
#include "lorvale/platform/user_interface.h"
