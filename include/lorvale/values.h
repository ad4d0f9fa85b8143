#pragma once
/// The value kinds that the whole library speaks in.
#include "lorvale/values/attributed_text.h"
#include "lorvale/values/data.h"
#include "lorvale/values/date.h"
#include "lorvale/values/encoding.h"
#include "lorvale/values/file_wrapper.h"
#include "lorvale/values/format.h"
#include "lorvale/values/property_list.h"
#include "lorvale/values/range.h"
#include "lorvale/values/regular_expression.h"
#include "lorvale/values/rich_text.h"
#include "lorvale/values/text.h"
