#pragma once
// The binary shape of the library's interfaces, identical whichever compiler builds the code
// on either side of the DLL boundary. Hosts are built by Visual C++; the library by MinGW GCC.
//
// Slot 0 of INetWorkerExecutor, INetWorkerApiWrapper, INamedPipeConnection and
// INetWorkerNamedPipeClient is the virtual deleting destructor as Visual C++ lays it out: one
// slot, called as slot0(this, flags), bit 0 of flags meaning "free the memory", returning this.
// GCC gives a virtual destructor two slots (complete and deleting), which would move every
// operation one slot down. So a GCC build declares slot 0 explicitly with the deleting
// destructor's signature and declares the C++ destructor after the last operation, where GCC's
// two destructor slots sit beyond everything a Visual C++ caller uses.
// Callback interfaces and ILog have no destructor slot at all.

#if defined(_MSC_VER)

// A host built with /Zc:wchar_t- has no built-in wchar_t; the CRT headers would define it the
// same way, under the same guard.
#if !defined(_NATIVE_WCHAR_T_DEFINED) && !defined(_WCHAR_T_DEFINED)
typedef unsigned short wchar_t;
#define _WCHAR_T_DEFINED
#endif

#define NWX_DESTRUCTOR_SLOT(Interface) \
public:                                \
    virtual ~Interface() {}

#define NWX_DESTRUCTOR_AFTER_OPERATIONS(Interface)

#else

// DeletingDestructor(1) is what a Visual C++ host's `delete p` runs; DeletingDestructor(0) only
// destroys. Both dispatch to the most derived class through the trailing virtual destructor.
#define NWX_DESTRUCTOR_SLOT(Interface)                     \
public:                                                    \
    virtual void* DeletingDestructor(unsigned int flags) { \
        void* const self = this;                           \
        if ((flags & 1u) != 0) {                           \
            delete this;                                   \
        } else {                                           \
            this->~Interface();                            \
        }                                                  \
        return self;                                       \
    }

#define NWX_DESTRUCTOR_AFTER_OPERATIONS(Interface) \
public:                                            \
    virtual ~Interface() = default;

#endif
