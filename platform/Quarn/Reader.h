#pragma once
// What a reader of a table is, whatever its type: what it asked for, and the memory that it reads.
//
//    Source -> memoryIs() -> pending --complete--> current -> Follower
//
// Invariants
// 1. `current` is the last generation that was seen complete; it is replaced by a complete one only.
// 2. A generation whose writer dies before it is complete is dropped unseen.

#include <memory>
#include <vector>

#include "platform/Kiv/Time.h"
#include "platform/Quarn/View.h"

namespace Quarn {

using Kiv::Seconds;

class Source;

class Reader;

/** Who follows a reader; the part that knows nothing of types. */
class FollowerLink {
 public:
   FollowerLink( const FollowerLink & ) = delete;
   FollowerLink & operator=( const FollowerLink & ) = delete;
   /** Wakes it if there is something to do. Calls no handler. */
   virtual void look() = 0;

 protected:
   explicit FollowerLink( Reader * reader );
   ~FollowerLink();
   /** Null when the reader has ended. */
   Reader * reader() const { return reader_; }

 private:
   friend class Reader;
   Reader * reader_;
};

class Reader {
 public:
   Reader( const Reader & ) = delete;
   Reader & operator=( const Reader & ) = delete;

   const String & name() const { return name_; }
   /** Whether the writer is there, and what is read is all that it knows. */
   bool complete() const;
   /** When that became so, as far as the process was awake to see it. */
   Seconds since() const;
   /** "" or one line: other type, other version, no memory, not there yet. */
   const String & refusal() const { return refusal_; }

   /** @name For followers */
   /** @{ */
   /** What is read; null before the first complete generation. */
   const std::shared_ptr< Mapping > & current() const;
   /** A follower has nothing left to do: the process may sleep. */
   void rest();
   /** @} */

 protected:
   Reader( Source * source, const String & name, const TableType & type );
   ~Reader();

 private:
   friend class Source;
   friend class FollowerLink;
   void memoryIs( int file );
   void refused( const String & line );
   void gone();
   void look();
   void adopt() const;
   void note() const;

   Source * source_;
   String name_;
   TableType type_;
   String refusal_;
   U32 number_ = 0; // of the question
   mutable Seconds since_ = 0;
   mutable bool wasComplete_ = false;
   bool live_ = false; // the writer of what came last is connected
   mutable std::shared_ptr< Mapping > current_;
   mutable std::shared_ptr< Mapping > pending_;
   std::vector< FollowerLink * > followers_;
};

} // namespace Quarn
