// Own declarations of the I/O registry calls that the macOS backend makes.
#ifndef MACDECL_IOKITLIB_H
#define MACDECL_IOKITLIB_H
#include <CoreFoundation/CoreFoundation.h>
#include <mach/mach.h>

extern "C" {

typedef UInt32 IOOptionBits;
typedef char io_name_t[128];
typedef mach_port_t io_object_t;
typedef io_object_t io_iterator_t;
typedef io_object_t io_registry_entry_t;
typedef io_object_t io_service_t;

#ifndef MACDECL_CHECK
#define IO_OBJECT_NULL (static_cast<io_object_t>(0))
#define kIOServicePlane "IOService"
enum { kIORegistryIterateRecursively = 1, kIORegistryIterateParents = 2 };
#endif
MACDECL_SAME(kIORegistryIterateRecursively, 1);
MACDECL_SAME(kIORegistryIterateParents, 2);
static_assert(sizeof(io_object_t) == 4 && sizeof(io_name_t) == 128);

CFMutableDictionaryRef IOBSDNameMatching(mach_port_t mainPort, uint32_t options,
                                         const char* bsdName);
io_service_t IOServiceGetMatchingService(mach_port_t mainPort, CFDictionaryRef matching);
boolean_t IOObjectConformsTo(io_object_t object, const io_name_t className);
kern_return_t IOObjectRetain(io_object_t object);
kern_return_t IOObjectRelease(io_object_t object);
kern_return_t IORegistryEntryGetParentIterator(io_registry_entry_t entry, const io_name_t plane,
                                               io_iterator_t* iterator);
kern_return_t IORegistryEntryCreateIterator(io_registry_entry_t entry, const io_name_t plane,
                                            IOOptionBits options, io_iterator_t* iterator);
io_object_t IOIteratorNext(io_iterator_t iterator);
boolean_t IOIteratorIsValid(io_iterator_t iterator);
kern_return_t IORegistryEntryGetRegistryEntryID(io_registry_entry_t entry, uint64_t* entryId);
CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef allocator, IOOptionBits options);

}  // extern "C"
#endif
