#pragma once
/// The toolkit's storage: one file of numbered blocks with atomic commit, the ordered set in it, and the roots
/// that all of the toolkit rests on.
#include "lorvale/toolkit/storage/bit_array.h"
#include "lorvale/toolkit/storage/block.h"
#include "lorvale/toolkit/storage/exception.h"
#include "lorvale/toolkit/storage/memory.h"
#include "lorvale/toolkit/storage/mutex.h"
#include "lorvale/toolkit/storage/object.h"
#include "lorvale/toolkit/storage/ram_stream.h"
#include "lorvale/toolkit/storage/skip_list.h"
#include "lorvale/toolkit/storage/sort.h"
#include "lorvale/toolkit/storage/storable.h"
#include "lorvale/toolkit/storage/storage.h"
#include "lorvale/toolkit/storage/stream.h"
#include "lorvale/toolkit/storage/verify.h"
#include "lorvale/toolkit/storage/verify_btree.h"
