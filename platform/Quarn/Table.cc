#include "platform/Quarn/Table.h"

#include <fcntl.h>
#include <sys/random.h>

#include <algorithm>
#include <cerrno>

#include "platform/Kiv/Log.h"
#include "platform/Kiv/Text.h"

namespace Quarn {

namespace {

constexpr U64 largestPiece = 256 * 1024;
constexpr U64 smallestPiece = 4096;
constexpr U32 slotsPerStep = 1024;
constexpr U32 positionsPerStep = 64;

constexpr Kiv::LogDescriptor tableFull = {
      "QUARN_TABLE_FULL",
      "Table %s in shared memory %s at %d entries.",
      "An entry could not be written to a table that agents share. Readers of the table do not "
      "know "
      "of it. The message is logged once for each table.",
      Kiv::logStandardAction3,
      Kiv::logError,
      0,
};

Kiv::LogHandle &
fullHandle() {
   static Kiv::LogHandle handle( tableFull, 0, 1.0, 0, 0, "Quarn" );
   return handle;
}

Shape
shapeOf( const Room & room, const TableType & type ) {
   const U32 most = std::clamp( room.most, 1u, Geometry::mostKeys );
   U32 changes = Geometry::fewestChanges;
   const U32 wanted = room.changes ? room.changes : most / 4;
   while ( changes < wanted && changes < Geometry::mostChanges ) {
      changes *= 2;
   }
   return { type.keyBytes, type.valueBytes, most, changes };
}

U64
randomNumber() {
   U64 number = 0;
   VELTO_ASSERT( getrandom( &number, sizeof( number ), 0 ) == ssize_t( sizeof( number ) ) );
   return number;
}

} // namespace

Table::Table( Server * server, const String & name, const Room & room, const TableType & type )
    : server_( server ), name_( name ), type_( type ) {
   checkName( name );
   fullHandle();
   Constants constants;
   constants.fingerprint = type.fingerprint;
   constants.generation = randomNumber();
   constants.seed = seed_ = randomNumber();
   constants.shape = shapeOf( room, type );
   memory_ = Mapping::make( constants, &file_, &fault_ );
   if ( memory_ ) {
      const Geometry & g = memory_->geometry();
      ring_ = { g.ringAt, U64( 4 ) * g.shape.changes };
      entries_ = { g.entriesAt, g.bytes - g.entriesAt };
      for ( U32 i = 0; i < g.indexes; ++i ) {
         indexes_[i] = { g.indexAt + g.indexOffset( i ), U64( 4 ) << g.slotBits( i ) };
      }
      slots_ = Slots( memory_->index( 0 ), g.slotBits( 0 ) );
      if ( !take( indexes_[0], indexes_[0].bytes ) ) {
         fault_ = "no memory for an index";
         memory_ = nullptr;
      }
   }
   if ( server_ ) {
      server_->tableIs( this );
   }
}

Table::~Table() {
   if ( server_ ) {
      server_->tableDel( this );
   }
}

void
Table::completeIs( bool v ) {
   if ( complete_ == v ) {
      return;
   }
   complete_ = v;
   if ( memory_ ) {
      storeRelease( &memory_->live().complete, v );
   }
   if ( server_ ) {
      server_->changed();
   }
}

U64
Table::bytes() const {
   U64 all = ring_.taken + entries_.taken;
   for ( const Taken & index : indexes_ ) {
      all += index.taken;
   }
   return all;
}

/** Counts, and says so the first time. */
bool
Table::refuse( const char * why ) {
   ++refused_;
   if ( !logged_ && fullHandle().okToLog() ) {
      logged_ = true;
      Kiv::log( fullHandle(), name_, String( why ), size_ );
   }
   return false;
}

/** Memory of a part up to that byte of it, piece by piece: each as large as what was taken. */
bool
Table::take( Taken & part, U64 upTo ) {
   while ( part.taken < upTo ) {
      const U64 piece = std::min( std::clamp( part.taken, smallestPiece, largestPiece ),
                                  part.bytes - part.taken );
      int failed;
      do {
         failed = fallocate( file_.get(), 0, off_t( part.at + part.taken ), off_t( piece ) );
      } while ( failed && errno == EINTR );
      if ( failed ) {
         return false;
      }
      part.taken += piece;
   }
   return true;
}

bool
Table::takeRing() {
   const U32 length = memory_->geometry().shape.changes;
   return head_ + 1 >= length ? take( ring_, ring_.bytes ) : take( ring_, 4 * ( head_ + 2 ) );
}

U32
Table::newPosition( U64 hash ) {
   const Geometry & g = memory_->geometry();
   if ( size_ >= g.shape.most ) {
      refuse( "is full" );
      return none;
   }
   if ( 4 * U64( slots_.occupied() ) >= 3 * U64( slots_.slots() ) || !slots_.room( hash ) ) {
      refuse( "has no memory for its index" );
      return none;
   }
   if ( !resting_.empty() && head_ + 1 - resting_.front().removed >= g.shape.changes ) {
      const U32 position = resting_.front().position;
      resting_.pop_front();
      return position;
   }
   VELTO_ASSERT( used_ < g.positions );
   if ( !take( entries_, U64( used_ + 1 ) * g.stride ) ) {
      refuse( "has no memory" );
      return none;
   }
   storeRelease( &memory_->live().used, used_ + 1 );
   return used_++;
}

U32 *
Table::Slots::room( U64 hash ) const {
   for ( U32 i = 0; i < Geometry::longestSearch; ++i ) {
      U32 * slot = this->slot( hash, i );
      if ( *slot == 0 || *slot == slotRemoved ) {
         return slot;
      }
   }
   return nullptr;
}

bool
Table::Slots::insert( U64 hash, U32 slot ) {
   U32 * room = this->room( hash );
   if ( room ) {
      occupied_ += *room == 0 ? 1 : 0;
      storeRelease( room, slot );
   }
   return room != nullptr;
}

/** Slots of removed keys behind which no search goes on are free again. */
void
Table::Slots::erase( U64 hash, U32 slot ) {
   U32 i = 0;
   while ( *this->slot( hash, i ) != slot ) {
      VELTO_ASSERT( ++i < Geometry::longestSearch );
   }
   storeRelease( this->slot( hash, i ), slotRemoved );
   if ( *this->slot( hash, i + 1 ) != 0 ) {
      return;
   }
   while ( *this->slot( hash, i ) == slotRemoved ) {
      storeRelease( this->slot( hash, i ), 0 );
      --occupied_;
      --i;
   }
}

void
Table::Slots::clear( U32 from, U32 to ) {
   for ( ; from < to; ++from ) {
      storeRelaxed( slots_ + from, 0 );
   }
}

void
Table::indexIs( U64 hash, U32 position ) {
   VELTO_ASSERT( slots_.insert( hash, slotOf( hash, position ) ) );
   if ( building_ && position < moved_ && !build_.insert( hash, slotOf( hash, position ) ) ) {
      building_ = false;
   }
}

void
Table::indexDel( U64 hash, U32 position ) {
   slots_.erase( hash, slotOf( hash, position ) );
   if ( building_ && position < moved_ ) {
      build_.erase( hash, slotOf( hash, position ) );
   }
}

/** The successor is twice as large, or, where removed keys fill the index, its twin. */
void
Table::beginBuild() {
   const Geometry & g = memory_->geometry();
   const bool larger = 8 * U64( size_ ) >= 3 * U64( slots_.slots() );
   buildIndex_ = larger && index_ / 2 + 1 < g.indexes / 2 ? ( index_ / 2 + 1 ) * 2 : index_ ^ 1;
   build_ = Slots( memory_->index( buildIndex_ ), g.slotBits( buildIndex_ ) );
   cleared_ = 0;
   moved_ = 0;
   building_ = true;
}

/** Where there is no memory, later writes try again. */
void
Table::clearOn() {
   const U32 to = std::min( cleared_ + slotsPerStep, build_.slots() );
   if ( take( indexes_[buildIndex_], U64( 4 ) * to ) ) {
      build_.clear( cleared_, to );
      cleared_ = to;
   }
}

void
Table::moveOn() {
   const U32 keyWords = type_.keyBytes / 4;
   for ( U32 i = 0; i < positionsPerStep && moved_ < used_; ++i ) {
      const U32 position = moved_++;
      const U32 * words = entry( position );
      if ( words[1] != entryPresent ) {
         continue;
      }
      const U64 hash = hashOfWords( words + 2, keyWords, seed_ );
      if ( !build_.insert( hash, slotOf( hash, position ) ) ) {
         building_ = false;
         return;
      }
   }
   if ( moved_ == used_ ) {
      index_ = buildIndex_;
      slots_ = build_;
      building_ = false;
      storeRelease( &memory_->live().index, ++indexChanges_ << 8 | index_ );
   }
}

void
Table::build() {
   if ( !building_ ) {
      beginBuild();
   }
   if ( cleared_ < build_.slots() ) {
      clearOn();
   } else {
      moveOn();
   }
}

} // namespace Quarn
