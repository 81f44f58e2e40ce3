#pragma once
// Following a table: what is told of it, so that the sum of what was told is the table.
//
//    follow: the ring, from `own` on --overtaken, or a new generation--> gather -> walk -> sweep
//       ^                                                                               |
//       `--------------------------- own := the head before gather <--------------------'
//
//    gather  keys that were told and are at their positions no more: deleted, or kept as strays
//    walk    every position: told if it is new or may have changed
//    sweep   strays that were not met again: deleted if they are gone
//
// Invariants
// 1. A key that was told is either at the position where it was told or a stray, never both.
// 2. What was told is noted before the handler is called.
// 3. An entry that is being written is passed over: its change is still to come. If its writer died in
//    it, what was told of it stays until the next generation is there.
// 4. The memory of the old generation is held until the new one is told.
// 5. The note that whoever follows left at a key stays with the key until it is deleted, wherever
//    the key moves. Of a writer that breaks the rules a key may be told with two notes.

#include <memory>
#include <vector>

#include "platform/Kiv/DenseMap.h"
#include "platform/Quarn/View.h"

namespace Quarn {

/** The keys that were told, by position, each with a note of a number. */
template< U32 keyWords >
class ToldKeys {
   static constexpr U32 chunkBits = 10;
   static constexpr U32 chunkSize = 1u << chunkBits;
   struct Chunk {
      std::array< Words< keyWords >, chunkSize > keys;
      std::array< U32, chunkSize > told = {}; // 0, or the note and 1
   };

 public:
   const Words< keyWords > * find( U32 position ) const {
      const U32 at = position >> chunkBits;
      const Chunk * chunk = at < chunks_.size() ? chunks_[at].get() : nullptr;
      const U32 in = position & ( chunkSize - 1 );
      return chunk && chunk->told[in] ? &chunk->keys[in] : nullptr;
   }
   U32 note( U32 position ) const {
      return chunks_[position >> chunkBits]->told[position & ( chunkSize - 1 )] - 1;
   }
   void set( U32 position, const Words< keyWords > & key, U32 note ) {
      const U32 at = position >> chunkBits;
      if ( at >= chunks_.size() ) {
         chunks_.resize( at + 1 );
      }
      if ( !chunks_[at] ) {
         chunks_[at] = std::make_unique< Chunk >();
      }
      const U32 in = position & ( chunkSize - 1 );
      count_ += chunks_[at]->told[in] ? 0 : 1;
      chunks_[at]->keys[in] = key;
      chunks_[at]->told[in] = note + 1;
   }
   void clear( U32 position ) {
      chunks_[position >> chunkBits]->told[position & ( chunkSize - 1 )] = 0;
      --count_;
   }
   U32 count() const { return count_; }
   /** Positions from this one on hold nothing. */
   U32 end() const { return U32( chunks_.size() ) << chunkBits; }

 private:
   std::vector< std::unique_ptr< Chunk > > chunks_;
   U32 count_ = 0;
};

template< U32 keyWords, U32 valueWords >
class ChaseOf {
 public:
   using Key = Words< keyWords >;
   using Value = Words< valueWords >;
   using Memory = std::shared_ptr< Mapping >;

   ChaseOf( const ChaseOf & ) = delete;
   ChaseOf & operator=( const ChaseOf & ) = delete;

   U64 overtaken() const { return overtaken_; }
   U64 behind() const { return from_ ? View( *from_ ).head( own_ ) - own_ : 0; }
   U32 toldKeys() const { return told_.count() + strays_.size() + kept_.size(); }

   /** Of the key that is being told, or deleted: what noteIs() said of it last; 0 at first. */
   U32 note() const { return note_; }
   /** For the key that is being told; any number but the greatest. */
   void noteIs( U32 note ) {
      VELTO_ASSERT( note + 1 != 0 && position_ != nowhere );
      note_ = note;
      told_.set( position_, *told_.find( position_ ), note );
   }

 protected:
   ChaseOf() = default;
   virtual ~ChaseOf() { *alive_ = false; }

   virtual void tell( const Key & key, const Value & value ) = 0;
   virtual void tellDel( const Key & key ) = 0;
   virtual void tellComplete() = 0;
   /** Whether the slice is used up; asked once an entry. */
   virtual bool yields() = 0;

   enum class Work : U8 { done, left, ended };
   /** Tells what is new in `current`, or in the memory of before where that is null. `ended`: a
       handler has ended this object. */
   Work work( const Memory current );
   /** Whether work() would find something to do. */
   bool hasNews( const Memory & current ) const {
      return at_ < batch_.size() || phase_ != Phase::follow || ( current && current != from_ ) ||
             ( from_ && View( *from_ ).head( own_ ) != own_ );
   }

 private:
   using View = ViewOf< keyWords, valueWords >;
   using Entry = typename View::Entry;
   enum class Phase : U8 { follow, gather, walk, sweep };
   static constexpr U32 batchSize = 64;
   struct Stray {
      Key key;
      U64 hash() const { return hashOfWords( key.data(), keyWords, 0 ); }
      bool operator==( const Stray & ) const = default;
   };
   using Strays = Kiv::DenseMap< Stray, U32 >; // with their notes
   static constexpr U32 nowhere = ~U32( 0 );

   bool step( const Memory & current );
   bool follow( const Memory & current );
   bool readOn( U64 limit );
   void tellChange();
   void begin( const Memory & to );
   void gather();
   void walk();
   void sweep();
   void finish();

   bool noteTold( U32 position, const Key & key );
   bool noteGone( U32 position, const Key & key );
   void noteStray( U32 position );
   void forget( U32 position );
   void deleted( const Key & key ) {
      position_ = nowhere;
      tellDel( key );
   }
   bool mayDiffer( const Entry & entry ) const;
   bool movesOn() const { return to_ != from_; }

   Phase phase_ = Phase::follow;
   bool leaving_ = false; // the memory that is followed is followed to last_ and no further
   bool unsure_ = false;  // strays that are left may be gone: they are swept once more
   bool tellAll_ = false; // so far behind that numbers say nothing
   const std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
   Memory from_;  // what was told is of this one
   Memory to_;    // what is gathered, walked and swept
   U64 own_ = 0;  // changes of from_ up to this one are told
   U64 last_ = 0; // the last one of from_, when it is left
   U64 toHead_ = 0;
   U32 place_ = 0;
   U32 used_ = 0;
   U64 overtaken_ = 0;
   U32 note_ = 0;
   U32 position_ = nowhere; // of the key that was told last
   ToldKeys< keyWords > told_;
   Strays strays_;
   Strays kept_; // strays that the sweep has left
   std::vector< typename View::Change > batch_;
   U32 at_ = 0;
};

template< U32 keyWords, U32 valueWords >
auto
ChaseOf< keyWords, valueWords >::work( const Memory current ) -> Work {
   const auto alive = alive_; // a handler may end this object
   while ( step( current ) ) {
      if ( !*alive ) {
         return Work::ended;
      }
      if ( yields() ) {
         return Work::left;
      }
   }
   return Work::done;
}

/** One entry. False if there was nothing to do; after a handler, which may have ended this object,
    nothing of it is touched. */
template< U32 keyWords, U32 valueWords >
bool
ChaseOf< keyWords, valueWords >::step( const Memory & current ) {
   switch ( phase_ ) {
   case Phase::follow:
      return follow( current );
   case Phase::gather:
      gather();
      return true;
   case Phase::walk:
      walk();
      return true;
   case Phase::sweep:
      sweep();
      return true;
   }
   return false;
}

template< U32 keyWords, U32 valueWords >
bool
ChaseOf< keyWords, valueWords >::follow( const Memory & current ) {
   if ( at_ < batch_.size() ) {
      tellChange();
      return true;
   }
   const bool leaves = current && current != from_;
   if ( !from_ ) {
      if ( leaves ) {
         begin( current );
      }
      return leaves;
   }
   const U64 head = View( *from_ ).head( own_ );
   if ( leaves && !leaving_ ) {
      leaving_ = true;
      last_ = head;
   }
   // A writer that is left may go on all the same, or tell nonsense: it is not followed further.
   if ( !( leaving_ && own_ >= last_ ) && readOn( leaving_ ? last_ : head ) ) {
      return true;
   }
   if ( leaves ) {
      begin( current );
      return true;
   }
   if ( unsure_ && !strays_.empty() ) {
      unsure_ = false;
      to_ = from_;
      toHead_ = own_;
      phase_ = Phase::sweep;
      return true;
   }
   return false;
}

/** The next changes; false if there are none. */
template< U32 keyWords, U32 valueWords >
bool
ChaseOf< keyWords, valueWords >::readOn( U64 limit ) {
   if ( limit == own_ ) {
      return false;
   }
   batch_.resize( batchSize );
   at_ = 0;
   const int n = View( *from_ ).changes( own_, limit, batch_.data(), batchSize );
   batch_.resize( n < 0 ? 0 : U32( n ) );
   unsure_ = true;
   if ( n < 0 ) {
      ++overtaken_;
      begin( from_ );
   }
   return true;
}

template< U32 keyWords, U32 valueWords >
void
ChaseOf< keyWords, valueWords >::tellChange() {
   const auto change = batch_[at_++];
   own_ = change.number;
   const Entry & entry = change.entry;
   if ( !change.told ) {
      return;
   }
   if ( entry.state == entryPresent ) {
      noteTold( change.position, entry.key );
      tell( entry.key, entry.value );
   } else if ( noteGone( change.position, entry.key ) ) {
      deleted( entry.key );
   }
}

template< U32 keyWords, U32 valueWords >
void
ChaseOf< keyWords, valueWords >::begin( const Memory & to ) {
   to_ = to;
   unsure_ = true;
   toHead_ = View( *to ).head( 0 );
   tellAll_ = !movesOn() && toHead_ - own_ >= U64( 1 ) << 30;
   place_ = 0;
   phase_ = Phase::gather;
}

template< U32 keyWords, U32 valueWords >
void
ChaseOf< keyWords, valueWords >::gather() {
   if ( place_ >= told_.end() ) {
      place_ = 0;
      used_ = View( *to_ ).used();
      phase_ = Phase::walk;
      return;
   }
   const U32 position = place_++;
   const Key * told = told_.find( position );
   if ( !told ) {
      return;
   }
   Entry entry;
   if ( !movesOn() && View( *to_ ).read( position, &entry ) && entry.state == entryPresent &&
        entry.key == *told ) {
      return;
   }
   const Key key = *told;
   if ( View( *to_ ).find( key, &entry ) == Found::no ) {
      forget( position );
      deleted( key );
   } else {
      noteStray( position );
      told_.clear( position );
   }
}

template< U32 keyWords, U32 valueWords >
void
ChaseOf< keyWords, valueWords >::walk() {
   if ( place_ >= used_ ) {
      phase_ = Phase::sweep;
      return;
   }
   const U32 position = place_++;
   Entry entry;
   // What changed since the walk began comes by the ring, in its order among the others.
   if ( View( *to_ ).read( position, &entry ) && entry.state == entryPresent &&
        !isBehind( entry.number(), U32( toHead_ ) & 0x7fffffff ) ) {
      const bool differs = mayDiffer( entry );
      if ( !noteTold( position, entry.key ) || differs ) {
         tell( entry.key, entry.value );
      }
   }
}

/** Whether an entry that is walked over may be another one than was told of its key. */
template< U32 keyWords, U32 valueWords >
bool
ChaseOf< keyWords, valueWords >::mayDiffer( const Entry & entry ) const {
   if ( !movesOn() ) {
      return tellAll_ || isBehind( entry.number(), U32( own_ ) & 0x7fffffff );
   }
   Entry old;
   return !from_ || View( *from_ ).find( entry.key, &old ) != Found::yes ||
          old.value != entry.value || isBehind( old.number(), U32( own_ ) & 0x7fffffff );
}

template< U32 keyWords, U32 valueWords >
void
ChaseOf< keyWords, valueWords >::sweep() {
   if ( strays_.empty() ) {
      strays_.swap( kept_ );
      finish();
      return;
   }
   const Stray stray = strays_.front().key;
   note_ = *strays_.take( stray );
   Entry entry;
   if ( View( *to_ ).find( stray.key, &entry ) == Found::no ) {
      deleted( stray.key );
   } else {
      kept_.emplace( stray, note_ );
   }
}

template< U32 keyWords, U32 valueWords >
void
ChaseOf< keyWords, valueWords >::finish() {
   const bool moved = movesOn();
   phase_ = Phase::follow;
   own_ = toHead_;
   from_ = to_;
   to_ = nullptr;
   leaving_ = leaving_ && !moved;
   if ( moved ) {
      tellComplete();
   }
}

/** Whether the key was told before. Another key that was told there is a stray now. */
template< U32 keyWords, U32 valueWords >
bool
ChaseOf< keyWords, valueWords >::noteTold( U32 position, const Key & key ) {
   position_ = position;
   const Key * there = told_.find( position );
   if ( there && *there == key ) {
      note_ = told_.note( position );
      return true;
   }
   if ( there ) {
      noteStray( position );
   }
   const auto stray = strays_.empty() ? std::nullopt : strays_.take( Stray{ key } );
   note_ = stray.value_or( 0 );
   told_.set( position, key, note_ );
   return stray.has_value();
}

/** Whether the key was told before. */
template< U32 keyWords, U32 valueWords >
bool
ChaseOf< keyWords, valueWords >::noteGone( U32 position, const Key & key ) {
   const Key * there = told_.find( position );
   if ( there && *there == key ) {
      forget( position );
      return true;
   }
   const auto stray = strays_.empty() ? std::nullopt : strays_.take( Stray{ key } );
   note_ = stray.value_or( 0 );
   return stray.has_value();
}

template< U32 keyWords, U32 valueWords >
void
ChaseOf< keyWords, valueWords >::noteStray( U32 position ) {
   strays_.emplace( Stray{ *told_.find( position ) }, told_.note( position ) );
}

template< U32 keyWords, U32 valueWords >
void
ChaseOf< keyWords, valueWords >::forget( U32 position ) {
   note_ = told_.note( position );
   told_.clear( position );
}

} // namespace Quarn
