#pragma once
// What one feature brings to the kit: its contracts, and the checks that judge them.
//
//    conformance/<feature>/: Contracts.h, Checks.cc -> Feature -> features()

#include <span>

#include "conformance/Conformance.h"

namespace QonConformance {

class Trial;

struct Check {
   const Contract & contract; ///< that it is about; it may find others broken
   void ( *make )( Trial & trial );
};

/** Words of a process that died, and the contract that they show to be broken. */
struct LastWords {
   const char * words;
   const Contract & contract;
};

struct Feature {
   const char * name; ///< with which the ids of its contracts begin
   std::span< const Contract * const > contracts;
   std::span< const Check > checks; ///< none: every check tells something of it
   std::span< const LastWords > lastWords;
   /** What the chip holds, an item a line; empty if it cannot be read back. */
   String ( *held )( const QonChip::Chip & chip );
};

/** In the order in which they are listed. */
std::span< const Feature * const > features();

} // namespace QonConformance
