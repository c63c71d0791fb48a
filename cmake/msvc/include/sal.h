/* Wine's sal.h plus the source annotations microsoft/STL uses that it lacks. They only inform
   MSVC's code analysis; for the ABI they are nothing. */
#pragma once
#include_next <sal.h>
#ifndef _Analysis_assume_
#define _Analysis_assume_(...)
#endif
#ifndef _Deref_post_opt_valid_
#define _Deref_post_opt_valid_
#endif
#ifndef _Field_z_
#define _Field_z_
#endif
#ifndef _Guarded_by_
#define _Guarded_by_(...)
#endif
#ifndef _In_
#define _In_
#endif
#ifndef _In_opt_
#define _In_opt_
#endif
#ifndef _In_opt_z_
#define _In_opt_z_
#endif
#ifndef _In_range_
#define _In_range_(...)
#endif
#ifndef _In_reads_
#define _In_reads_(...)
#endif
#ifndef _In_z_
#define _In_z_
#endif
#ifndef _Inout_
#define _Inout_
#endif
#ifndef _Inout_opt_
#define _Inout_opt_
#endif
#ifndef _Out_opt_
#define _Out_opt_
#endif
#ifndef _Out_writes_
#define _Out_writes_(...)
#endif
#ifndef _Out_writes_all_
#define _Out_writes_all_(...)
#endif
#ifndef _Out_writes_bytes_
#define _Out_writes_bytes_(...)
#endif
#ifndef _Out_writes_opt_
#define _Out_writes_opt_(...)
#endif
#ifndef _Out_writes_z_
#define _Out_writes_z_(...)
#endif
#ifndef _Outptr_opt_result_maybenull_
#define _Outptr_opt_result_maybenull_
#endif
#ifndef _Post_equal_to_
#define _Post_equal_to_(...)
#endif
#ifndef _Post_readable_size_
#define _Post_readable_size_(...)
#endif
#ifndef _Post_satisfies_
#define _Post_satisfies_(...)
#endif
#ifndef _Pre_satisfies_
#define _Pre_satisfies_(...)
#endif
#ifndef _Ret_range_
#define _Ret_range_(...)
#endif
#ifndef _Ret_z_
#define _Ret_z_
#endif
#ifndef _When_
#define _When_(...)
#endif
