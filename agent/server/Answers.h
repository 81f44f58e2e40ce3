#pragma once
// The lines of the agent's answers.
//
//    short    {"ok": true, ...}                         or {"ok": false, "error": "why"}
//    long     {"ok": true, "columns": ...}, then lines without "ok", then {"ok": true}, or
//             {"ok": false, "error": "why"} if what follows cannot be told
//
// A long answer is made while it is sent, piece by piece: whoever reads it waits for nothing but the
// first row, and whoever makes it is never kept from other work for long.
//
// Invariants
// 1. A piece has whole lines. It ends with the line behind which there are `mostBytes`, or after
//    `mostSteps` steps.
// 2. What a step raises ends the answer with a line that says so, and goes no further.

#include "agent/Rows.h"
#include "agent/base/Json.h"
#include "agent/server/Connection.h"
#include "platform/Orvane/EntityManager.h"

namespace QonAgent {

struct ShowCommand;

/** An answer under way. */
struct LongAnswer {
   static constexpr U32 mostBytes = 32768;
   static constexpr U32 mostSteps = 256;

   /** Appends a line, or nothing; false: there was nothing left. */
   using Step = std::function< bool( String & out ) >;

   String head; ///< a line
   Step step;

   /** Everything behind the head, in pieces. */
   Connection::More pieces() const;
};

/** The rows of a command. What the making of the first one raises passes. */
LongAnswer answerOf( const ShowCommand & command, Rows rows );
/** What there is below a path, a line as of a watch for each entry. */
LongAnswer answerOf( Orvane::Dump dump );

Json okAnswer();
Json failureAnswer( const String & why );
/** One line. Texts that are not UTF-8 are shown with replacement characters. */
String lineOf( const Json & json );
/** The line by which watches and dumps tell of a path; `value` is null for what is gone. */
String lineOf( const String & path, const String * value, bool isEntity );

} // namespace QonAgent
