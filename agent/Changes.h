#pragma once
// What a client can do to a running agent, by kind and text: the changes that a recording notes.
//
//    console -> applyChange( agent, "set", "PATH\nVALUE" ) -> the state database -> state machines

#include "agent/Agent.h"

namespace QonAgent {

/** Kinds: "set" (path, line end, value), "together" (a JSON object of paths and values: all or none
    of them are set), "insert" and "delete" (path), "event" (a line as of a stream of events), "raise"
    (message, then an argument a line), "verify" (a client's command). Returns the answer: of a verification its text,
    of "raise" whether the message was emitted ("True", "False"), else nothing. Velto::RangeError
    for what cannot be done; nothing has been changed then. */
String applyChange( Agent & agent, const String & kind, const String & text );

/** The kinds, in no particular order. */
const std::vector< String > & changeKinds();

} // namespace QonAgent
