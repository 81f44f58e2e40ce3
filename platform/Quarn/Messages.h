#pragma once
// What goes over the connection between a reader's process and a writer's, a message a packet.
//
//    reader: Question ...                       writer: Answer ... | one byte: wake up
//
// Invariants
// 1. The same bytes on 32 and 64 bit.
// 2. An answer carries the memory file of a table that may be read, and the first answer of a
//    connection behind it the page in which the reader says that it sleeps: 0 is awake, any other
//    number is the name of that sleep.

#include "platform/Velto/Types.h"

namespace Quarn {

struct Question {
   static constexpr U32 magicWord = 0x6e726171;
   U32 magic = magicWord;
   U32 version = 0; ///< layout version
   U32 number = 0;  ///< of the question, within the connection
   U32 spare = 0;
   U64 fingerprint = 0;
   char name[64] = {}; ///< the rest is zero
};
static_assert( sizeof( Question ) == 88 );

enum AnswerStatus : U32 { answerMemory = 1, answerRefused = 2, answerWait = 3 };

struct Answer {
   static constexpr U32 magicWord = 0x6e726172;
   U32 magic = magicWord;
   U32 number = 0; ///< of the question
   U32 status = 0;
   U32 page = 0;        ///< 1: with the connection's page
   char line[176] = {}; ///< why there is no memory
};
static_assert( sizeof( Answer ) == 192 );

} // namespace Quarn
