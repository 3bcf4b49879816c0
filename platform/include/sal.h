// Annotations that analysis tools read. Here most of them say nothing; the verifier checks what the last ones say of
// locks while the driver runs.
#pragma once

#define _In_
#define _In_opt_
#define _In_z_
#define _In_opt_z_
#define _In_reads_(count)
#define _In_reads_opt_(count)
#define _In_reads_bytes_(bytes)
#define _In_reads_bytes_opt_(bytes)
#define _Inout_
#define _Inout_opt_
#define _Inout_updates_(count)
#define _Inout_updates_bytes_(bytes)
#define _Out_
#define _Out_opt_
#define _Out_writes_(count)
#define _Out_writes_opt_(count)
#define _Out_writes_z_(count)
#define _Out_writes_to_(count, used)
#define _Out_writes_bytes_(bytes)
#define _Out_writes_bytes_opt_(bytes)
#define _Out_writes_bytes_to_(bytes, used)
#define _Out_writes_bytes_to_opt_(bytes, used)
#define _Outptr_
#define _Outptr_opt_
#define _Outptr_result_maybenull_
#define _Outptr_result_bytebuffer_(bytes)
#define _Ret_maybenull_
#define _Ret_notnull_
#define _Ret_z_
#define _Field_size_(count)
#define _Field_size_bytes_(bytes)
#define _Null_terminated_
#define _Printf_format_string_
#define _Reserved_
#define _Struct_size_bytes_(bytes)
#define _Success_(condition)
#define _Must_inspect_result_
#define _Check_return_
#define _Use_decl_annotations_
#define _Function_class_(name)
#define _Analysis_assume_(condition)
#define _When_(condition, annotations)
#define _At_(target, annotations)
#define _Pre_satisfies_(condition)
#define _Post_satisfies_(condition)
#define _Dispatch_type_(type)
#define _Kernel_float_used_

#define _IRQL_requires_(irql)
#define _IRQL_requires_max_(irql)
#define _IRQL_requires_min_(irql)
#define _IRQL_requires_same_
#define _IRQL_raises_(irql)
#define _IRQL_saves_
#define _IRQL_restores_
#define _IRQL_saves_global_(kind, target)
#define _IRQL_restores_global_(kind, target)

#define _Acquires_lock_(lock)
#define _Releases_lock_(lock)
#define _Acquires_exclusive_lock_(lock)
#define _Releases_exclusive_lock_(lock)
#define _Requires_lock_held_(lock)
#define _Requires_lock_not_held_(lock)
#define _Requires_exclusive_lock_held_(lock)
#define _Requires_no_locks_held_
#define _Guarded_by_(lock)
#define _Write_guarded_by_(lock)
#define _Interlocked_
#define _Has_lock_kind_(kind)
#define _Lock_level_order_(first, second)
#define _Acquires_nonreentrant_lock_(lock)
#define _Releases_nonreentrant_lock_(lock)
#define _Kernel_clear_do_init_(value)
#define __drv_allocatesMem(kind)
#define __drv_freesMem(kind)
#define __drv_aliasesMem

// Annotations that stand in code: what a tool takes for granted, the verifier checks
// (platform/kernel/verified_locks.cpp).
extern "C" {
// The caller holds the lock; the caller does not.
void VerifierRequireLock(const volatile void* lock);
void VerifierForbidLock(const volatile void* lock);
// The lock, which has just been initialised, stands at this place of the order, 0 to 31, outermost first. No lock is
// taken while a leaf is held. `name` is kept, not copied.
void VerifierPlaceLock(void* lock, unsigned place, bool leaf, const char* name);
// The caller holds a lock of one of these places; bit n stands for place n.
void VerifierRequirePlace(unsigned places);
}
#define _Analysis_assume_lock_held_(lock) VerifierRequireLock(&(lock))
#define _Analysis_assume_lock_not_held_(lock) VerifierForbidLock(&(lock))
// Not among the published ones; a driver defines them as nothing where the platform does not.
#define _Lock_order_place_(lock, place, leaf, name) VerifierPlaceLock(&(lock), static_cast<unsigned>(place), leaf, name)
#define _Lock_order_place_held_(places) VerifierRequirePlace(places)
