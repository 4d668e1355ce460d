// The Windows names of the public types, as the implementation uses them: unqualified, with TRUE
// and FALSE. The public headers keep them in namespace nomsoi so that they do not clash with other
// libraries' headers; code of this project includes this header instead.
#ifndef NOM_WIN_TYPES_H_
#define NOM_WIN_TYPES_H_

#include "NOMSOITypes.h"

using nomsoi::BOOL;
using nomsoi::DWORD;
using nomsoi::HRESULT;
using nomsoi::UINT;
using nomsoi::ULONG;

using nomsoi::E_ACCESSDENIED;
using nomsoi::E_FAIL;
using nomsoi::E_INVALIDARG;
using nomsoi::E_NOTIMPL;
using nomsoi::E_OUTOFMEMORY;
using nomsoi::E_POINTER;
using nomsoi::HRESULT_FROM_WIN32;
using nomsoi::S_FALSE;
using nomsoi::S_OK;

using nomsoi::NOMOIDIdentPathsMap;
using nomsoi::NOMStringMap;
using nomsoi::NOMStringMultimap;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

#endif  // NOM_WIN_TYPES_H_
