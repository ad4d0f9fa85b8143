#pragma once
/// What the toolkit knows of documents: a source of them, their storable names, their texts.
#include "lorvale/toolkit/corpus/corpus.h"
#include "lorvale/toolkit/corpus/doc.h"
#include "lorvale/toolkit/corpus/string_corpus.h"
