#pragma once
// Assertions of the next-hop collection and the layer-2 adjacency: they all name one module, whichever
// source they stand in.

#include "platform/Velto/Assert.h"

/** As VELTO_ASSERT. */
#define QON_L2ADJ_ASSERT( ... )                                                                    \
   ( static_cast< bool >( __VA_ARGS__ )                                                            \
           ? void( 0 )                                                                             \
           : ::Velto::assertFail( #__VA_ARGS__, "QonL2AdjTypes", __LINE__, __PRETTY_FUNCTION__ ) )
