// The memory of a shared table whose writer writes whatever it likes. A reader may be told nonsense; it
// comes to an end, and tells no key gone that it was not told.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <set>

#include "fuzz/Fuzz.h"
#include "platform/Quarn/Chase.h"

namespace {

using Fuzz::String;
using Quarn::Mapping;
using Words = Quarn::Words< 2 >;
using Memory = std::shared_ptr< Mapping >;

constexpr Quarn::TableType pairs{ 0x1122334455667788, 8, 8 };
constexpr U32 mostSteps =
      100000; // over a memory that stands still; a table here has 1,088 positions

class Reader : public Quarn::ChaseOf< 2, 2 > {
 public:
   /** Whether work is left. */
   bool workOn( const Memory & memory, U32 steps ) {
      left_ = steps;
      return work( memory ) == Work::left;
   }

 private:
   void tell( const Words & key, const Words & value ) override {
      held_.insert( key );
      noteIs( value[0] & 0xff );
   }
   void tellDel( const Words & key ) override { held_.erase( key ); }
   void tellComplete() override {}
   bool yields() override { return left_-- <= 1; }

   std::set< Words > held_;
   U32 left_ = 0;
};

/** What a writer has: the memory, and its own way with it. */
class Hostile {
 public:
   Hostile() {
      Quarn::Constants constants;
      constants.fingerprint = pairs.fingerprint;
      constants.shape = { pairs.keyBytes, pairs.valueBytes, 64, Quarn::Geometry::fewestChanges };
      String why;
      memory_ = Mapping::make( constants, &file_, &why );
      seen = Mapping::attach( file_.get(), pairs, &why );
      VELTO_ASSERT( memory_ && seen );
   }

   /** As an honest one does. */
   void write( U32 position, U32 key, U32 value, U32 state ) {
      const auto & geometry = memory_->geometry();
      position %= 80;
      U32 * entry = memory_->entry( position );
      const U32 words[] = { 2 * ++head_, state, key, 0, value, 0 };
      std::memcpy( entry, words, sizeof( words ) );
      const Words asKey = { key, 0 };
      const U64 hash = Quarn::hashOfWords( asKey.data(), 2, memory_->constants().seed );
      memory_->index( 0 )[U32( hash ) & 1023] =
            Quarn::slotTag( hash, geometry.positionBits ) | ( position + 1 );
      memory_->ring()[head_ % geometry.shape.changes] = position;
      auto & live = memory_->live();
      live.head[0] = live.head[2] = 0;
      live.head[1] = head_;
      live.used = std::max( live.used, position + 1 );
   }
   /** Any word of the parts that are read: the page of live words, the ring, an index, the entries. */
   void scribble( U32 part, U32 at, U32 word ) {
      const auto & geometry = memory_->geometry();
      const struct {
         U32 * words;
         U32 count;
      } parts[] = { { memory_->live().head, 3 },
                    { &memory_->live().used, 3 },
                    { memory_->ring(), geometry.shape.changes },
                    { memory_->index( 0 ), 1024 },
                    { memory_->entry( 0 ), geometry.positions * geometry.stride / 4 } };
      const auto & chosen = parts[part % 5];
      chosen.words[at % chosen.count] = word;
   }

   Memory seen; ///< by a reader

 private:
   Quarn::Handle file_;
   Memory memory_;
   U32 head_ = 0;
};

/** A file of any kind and size that claims to be a table. */
void
handOver( Fuzz::Input & input ) {
   Quarn::Handle file( memfd_create( "fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING ) );
   const U32 size = input.number< U32 >() % ( 1u << 24 ), seals = input.number< U8 >();
   const String bytes = input.rest();
   VELTO_ASSERT( write( file.get(), bytes.data(), bytes.size() ) == ssize_t( bytes.size() ) );
   VELTO_ASSERT( ftruncate( file.get(), off_t( size ) ) == 0 );
   fcntl( file.get(), F_ADD_SEALS, seals & F_SEAL_SHRINK );
   String why;
   if ( const Memory memory = Mapping::attach( file.get(), pairs, &why ) ) {
      Reader().workOn( memory, mostSteps );
   }
}

} // namespace

FUZZ( tables ) {
   if ( input.number< U8 >() % 8 == 0 ) {
      handOver( input );
      return;
   }
   auto writer = std::make_unique< Hostile >();
   Reader reader;
   while ( !input.empty() ) {
      const U8 does = input.number< U8 >();
      if ( does % 8 < 3 ) {
         const U8 position = input.number< U8 >(), key = input.number< U8 >();
         writer->write( position, key, input.number< U8 >(),
                        does % 8 == 2 ? Quarn::entryRemoved : Quarn::entryPresent );
      } else if ( does % 8 < 5 ) {
         const U16 at = input.number< U16 >();
         writer->scribble( does / 8, at,
                           does % 8 == 3 ? input.number< U8 >() : input.number< U32 >() );
      } else if ( does == 255 ) {
         writer = std::make_unique< Hostile >();
      } else {
         reader.workOn( writer->seen, 1 + does );
      }
   }
   VELTO_ASSERT( !reader.workOn( writer->seen, mostSteps ) );
}
