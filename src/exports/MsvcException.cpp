#include "MsvcException.h"

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <set>
#include <string>

extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace {

// --- Visual C++'s x64 exception and RTTI records: offsets are 32-bit and image-relative. ---

constexpr DWORD kMsvcExceptionCode = 0xE06D7363;  // 'msc' | 0xE0000000
constexpr ULONG_PTR kMsvcMagic = 0x19930520;

struct Pmd {  // where a base lies in the object: member, vbtable and vbase displacements
    int32_t mdisp;
    int32_t pdisp;
    int32_t vdisp;
};

template <size_t N>
struct TypeDescriptor {
    const void* vftable;  // type_info's; only names are compared when matching a catch
    void* spare;
    char name[N];
};

struct CatchableType {
    uint32_t properties;
    int32_t type;  // TypeDescriptor
    Pmd thisDisplacement;
    int32_t sizeOrOffset;
    int32_t copyFunction;
};
static_assert(sizeof(CatchableType) == 28, "CatchableType");
static_assert(offsetof(CatchableType, copyFunction) == 24, "CatchableType::copyFunction");

constexpr int kMaxBases = 3;  // invalid_argument, logic_error, exception

struct CatchableTypeArray {
    int32_t count;
    int32_t types[kMaxBases];  // CatchableType
};

struct ThrowInfo {
    uint32_t attributes;
    int32_t unwind;  // the thrown object's destructor
    int32_t forwardCompat;
    int32_t catchableTypes;  // CatchableTypeArray
};
static_assert(sizeof(ThrowInfo) == 16, "ThrowInfo");

struct BaseClassDescriptor {
    int32_t type;  // TypeDescriptor
    uint32_t containedBases;
    Pmd where;
    uint32_t attributes;
    int32_t classHierarchy;  // ClassHierarchyDescriptor
};
static_assert(sizeof(BaseClassDescriptor) == 28, "BaseClassDescriptor");

struct ClassHierarchyDescriptor {
    uint32_t signature;
    uint32_t attributes;
    uint32_t baseCount;
    int32_t bases;  // array of BaseClassDescriptor offsets
};

struct CompleteObjectLocator {
    uint32_t signature;  // 1: image-relative (x64)
    uint32_t offset;
    uint32_t constructorDisplacementOffset;
    int32_t type;            // TypeDescriptor
    int32_t classHierarchy;  // ClassHierarchyDescriptor
    int32_t self;
};
static_assert(sizeof(CompleteObjectLocator) == 24, "CompleteObjectLocator");

// The thrown object, laid out as Visual C++'s std::exception: the vftable pointer, then the
// text and whether std::exception's destructor frees it (never: the text is ours).
struct ExceptionObject {
    const void* const* vftable;
    const char* what;
    bool doFree;
};
static_assert(sizeof(ExceptionObject) == 24, "std::exception as Visual C++ lays it out");
static_assert(offsetof(ExceptionObject, what) == 8, "std::exception's text");

constexpr uint32_t kBaseHasHierarchy = 0x40;  // BCD_HASPCHD
constexpr int kTypeCount = 5;                 // as MsvcExceptionType

int32_t Rva(const void* address) {
    return static_cast<int32_t>(reinterpret_cast<const char*>(address) -
                                reinterpret_cast<const char*>(&__ImageBase));
}

template <typename Function>
uintptr_t CodeAddress(Function* function) {
    return reinterpret_cast<uintptr_t>(function);
}

template <typename Function>
int32_t CodeRva(Function* function) {
    return static_cast<int32_t>(CodeAddress(function) - reinterpret_cast<uintptr_t>(&__ImageBase));
}

// Everything Visual C++ needs for one type: its descriptors for catching and for RTTI, its
// vftable, and the throw information that lists what it can be caught as.
struct TypeRecords {
    CompleteObjectLocator locator;
    uintptr_t vftable[3];  // [0] the locator, then the two slots; an object points at [1]
    ClassHierarchyDescriptor hierarchy;
    int32_t bases[kMaxBases];
    BaseClassDescriptor baseDescriptors[kMaxBases];
    CatchableType catchable;  // this type as a handler sees it: the object sliced to it
    CatchableTypeArray catchableTypes;
    // No destructor: the object owns nothing (its text is pooled), as the runtime assumes of a
    // copy it keeps for std::exception_ptr and destroys in its own time.
    ThrowInfo throwInfo;
};

struct MsvcTypes {
    TypeDescriptor<32> descriptors[kTypeCount] = {
        {nullptr, nullptr, ".?AVexception@std@@"},
        {nullptr, nullptr, ".?AVlogic_error@std@@"},
        {nullptr, nullptr, ".?AVinvalid_argument@std@@"},
        {nullptr, nullptr, ".?AVruntime_error@std@@"},
        {nullptr, nullptr, ".?AVbad_alloc@std@@"},
    };
    TypeRecords records[kTypeCount];

    MsvcTypes();
};

MsvcTypes& Types() {
    static MsvcTypes types;  // built once, on the first raise; never changed afterwards
    return types;
}

// --- the vftable's two slots and the runtime's two calls, with this in rcx ---

// Slot 0, the deleting destructor: the object owns nothing, and its storage is a frame's or the
// runtime's, never the library's heap, so nothing is freed here, whatever the flags.
void* DeletingDestructor(ExceptionObject* self, unsigned int) {
    return self;
}

const char* What(const ExceptionObject* self) {
    return self->what != nullptr ? self->what : "Unknown exception";
}

// The copy constructor for a handler that catches by value, or for the runtime's own copy behind
// std::exception_ptr, as type `Index`: the copy shares the pooled text, which outlives every
// copy, so copies are destroyed in any order.
template <int Index>
ExceptionObject* CopyAs(ExceptionObject* target, const ExceptionObject* source) {
    target->vftable = reinterpret_cast<const void* const*>(&Types().records[Index].vftable[1]);
    target->what = source->what;
    target->doFree = false;
    return target;
}

using CopyFunction = ExceptionObject* (*)(ExceptionObject*, const ExceptionObject*);
constexpr CopyFunction kCopies[kTypeCount] = {&CopyAs<0>, &CopyAs<1>, &CopyAs<2>, &CopyAs<3>,
                                              &CopyAs<4>};

MsvcTypes::MsvcTypes() {
    // Each type's bases, most derived first, as indexes of MsvcExceptionType; -1 ends a chain.
    static const int kChains[kTypeCount][kMaxBases] = {
        {0, -1, -1},  // exception
        {1, 0, -1},   // logic_error
        {2, 1, 0},    // invalid_argument
        {3, 0, -1},   // runtime_error
        {4, 0, -1},   // bad_alloc
    };
    for (int t = 0; t < kTypeCount; ++t) {
        TypeRecords& r = records[t];
        r.catchable =
            CatchableType{0, Rva(&descriptors[t]), Pmd{0, -1, 0},
                          static_cast<int32_t>(sizeof(ExceptionObject)), CodeRva(kCopies[t])};
    }
    for (int t = 0; t < kTypeCount; ++t) {
        TypeRecords& r = records[t];
        int count = 0;
        while (count < kMaxBases && kChains[t][count] >= 0) {
            const int base = kChains[t][count];
            r.baseDescriptors[count] =
                BaseClassDescriptor{Rva(&descriptors[base]), 0, Pmd{0, -1, 0}, kBaseHasHierarchy,
                                    Rva(&records[base].hierarchy)};
            r.bases[count] = Rva(&r.baseDescriptors[count]);
            r.catchableTypes.types[count] = Rva(&records[base].catchable);
            ++count;
        }
        for (int b = 0; b < count; ++b) {
            r.baseDescriptors[b].containedBases = static_cast<uint32_t>(count - b - 1);
        }
        r.hierarchy = ClassHierarchyDescriptor{0, 0, static_cast<uint32_t>(count), Rva(r.bases)};
        r.catchableTypes.count = count;
        r.locator = CompleteObjectLocator{
            1, 0, 0, Rva(&descriptors[t]), Rva(&r.hierarchy), Rva(&r.locator)};
        r.vftable[0] = reinterpret_cast<uintptr_t>(&r.locator);
        r.vftable[1] = CodeAddress(&DeletingDestructor);
        r.vftable[2] = CodeAddress(&What);
        r.throwInfo = ThrowInfo{0, 0, 0, Rva(&r.catchableTypes)};
    }
}

// The texts of raised exceptions, kept for the life of the process: a host may keep a copy of an
// exception with std::exception_ptr and read its what() on any thread, long after every handler
// has ended. Equal texts share one entry, so the pool grows only with the distinct messages
// raised. Null when memory ran out. Neither the pool nor its lock is ever destroyed: an
// exception may be raised while the DLL is being unloaded.
const char* PooledText(const char* text) noexcept {
    static std::mutex* const lock = new (std::nothrow) std::mutex;
    static std::set<std::string>* const texts = new (std::nothrow) std::set<std::string>;
    if (lock == nullptr || texts == nullptr) {
        return nullptr;
    }
    try {
        const std::lock_guard<std::mutex> hold(*lock);
        return texts->insert(text).first->c_str();
    } catch (...) {
        return nullptr;
    }
}

const char* DefaultText(MsvcExceptionType type) {
    switch (type) {
        case MsvcExceptionType::BadAlloc:
            return "bad allocation";
        default:
            return "Unknown exception";
    }
}

}  // namespace

PendingMsvcException PendingMsvcException::Of(MsvcExceptionType type, const char* text) {
    PendingMsvcException pending;
    pending.type = type;
    const char* source = text != nullptr ? text : DefaultText(type);
    const size_t length = strnlen(source, kTextCapacity - 1);
    std::memcpy(pending.text, source, length);
    pending.text[length] = '\0';
    return pending;
}

void RaiseMsvcException(const PendingMsvcException& pending) {
    MsvcTypes& types = Types();
    MsvcExceptionType type = pending.type;
    const char* text = PooledText(pending.text);
    if (text == nullptr) {
        // Memory ran out: what the host gets is a bad_alloc, whose text is a literal.
        type = MsvcExceptionType::BadAlloc;
        text = "bad allocation";
    }
    const TypeRecords& records = types.records[static_cast<int>(type)];
    // On this frame, as Visual C++'s `throw` keeps its object on the throwing frame: the frame
    // stays while the host's handlers run, and is gone only once the last of them has ended.
    ExceptionObject object{reinterpret_cast<const void* const*>(&records.vftable[1]), text, false};
    const ULONG_PTR arguments[4] = {
        kMsvcMagic,
        reinterpret_cast<ULONG_PTR>(&object),
        reinterpret_cast<ULONG_PTR>(&records.throwInfo),
        reinterpret_cast<ULONG_PTR>(&__ImageBase),
    };
    RaiseException(kMsvcExceptionCode, EXCEPTION_NONCONTINUABLE, 4, arguments);
    // Not reached: nothing continues a non-continuable exception.
    TerminateProcess(GetCurrentProcess(), 3);
    for (;;) {
    }
}
