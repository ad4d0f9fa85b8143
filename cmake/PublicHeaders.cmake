# The headers that are installed.  One family a header; the folders hold the parts of an umbrella.
set(LORVALE_PUBLIC_HEADERS
    include/lorvale/export.h
    include/lorvale/platform.h
    include/lorvale/platform/exception.h
    include/lorvale/platform/log.h
    include/lorvale/platform/mutex.h
    include/lorvale/values.h
    include/lorvale/values/data.h
    include/lorvale/values/date.h
    include/lorvale/values/encoding.h
    include/lorvale/values/format.h
    include/lorvale/values/range.h
    include/lorvale/values/text.h
)
