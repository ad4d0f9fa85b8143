#pragma once
/// What the toolkit knows of documents: a source of them, their storable names, their texts; texts in memory,
/// pieces of one, and files.
#include "lorvale/toolkit/corpus/corpus.h"
#include "lorvale/toolkit/corpus/doc.h"
#include "lorvale/toolkit/corpus/extent.h"
#include "lorvale/toolkit/corpus/string_corpus.h"
#include "lorvale/toolkit/corpus/ufs_corpus.h"
#include "lorvale/toolkit/corpus/ufs_directory_corpus.h"
#include "lorvale/toolkit/corpus/ufs_iterator.h"
