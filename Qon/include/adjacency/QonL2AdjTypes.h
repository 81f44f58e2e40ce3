#pragma once
// Layer-3 adjacencies: everything of the module QonL2AdjTypes.
//
//    prefix -> FEC -> NextHopCollection -> ViaList -> Via -> EncapInfo        values, shared
//                            |
//                       L2AdjKey -> L2Adjacency <- the FECs that use it       one in hardware
//
//    Via.h                 one next hop, and the small values around it
//    ViaList.h             the list that collections share, and its table
//    NextHopViews.h        iterators, bitmaps of slots, sums by next hop
//    NextHopCollection.h   the next hops of one FEC
//    L2AdjKey.h            what names an adjacency
//    L2AdjValues.h         what travels between builders and installers
//    L2Adjacency.h         the adjacency, its FECs and their table types
//    QonAdjTypesCommon.h   encapsulations, errors, reasons of updates (a module of its own)
//
// All this stands below the framework, whose acknowledgements name adjacencies: it needs the platform
// only, has no hooks and follows nothing but the adjacency that another one is a proxy of.

#include "Qon/include/adjacency/L2Adjacency.h"
