#include "platform/Quarn/Memory.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <utility>

#include "platform/Kiv/Text.h"
#include "platform/Velto/Assert.h"

namespace Quarn {

static_assert( __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ );

namespace {

constexpr U64 pageBytes = 4096;
constexpr U32 mostBytesOfPart = 1u << 16; // of a key or a value
static_assert( 64 + sizeof( Live ) <= pageBytes && sizeof( Constants ) <= 64 );

U64
toPages( U64 bytes ) {
   return ( bytes + pageBytes - 1 ) / pageBytes * pageBytes;
}

U32
bitsFor( U32 number ) {
   U32 bits = 0;
   while ( bits < 32 && number >> bits != 0 ) {
      ++bits;
   }
   return bits;
}

} // namespace

bool
Geometry::sound( const Shape & shape ) {
   auto part = []( U32 bytes ) { return bytes && bytes % 8 == 0 && bytes <= mostBytesOfPart; };
   return part( shape.keyBytes ) && part( shape.valueBytes ) && shape.most &&
          shape.most <= mostKeys && shape.changes >= fewestChanges &&
          shape.changes <= mostChanges && ( shape.changes & ( shape.changes - 1 ) ) == 0;
}

Geometry::Geometry( const Shape & s ) : shape( s ) {
   VELTO_ASSERT( sound( s ) );
   positions = s.most + s.changes;
   positionBits = bitsFor( positions + 2 ); // a slot's position + 1 is never all ones
   stride = 8 + s.keyBytes + s.valueBytes;
   // The largest is never more than a quarter full of keys: half of it is left for removed ones.
   U32 bits = fewestSlotBits;
   while ( ( U64( 1 ) << bits ) < U64( 4 ) * s.most ) {
      ++bits;
   }
   indexes = 2 * ( bits - fewestSlotBits + 1 );
   ringAt = pageBytes;
   indexAt = ringAt + toPages( U64( 4 ) * s.changes );
   entriesAt = indexAt + indexOffset( indexes );
   bytes = entriesAt + toPages( U64( positions ) * stride );
}

U64
Geometry::indexOffset( U32 index ) const {
   // Two of each size: 2 * ( 2^k + ... ) slots of four bytes.
   const U64 pairs = ( ( U64( 1 ) << ( index / 2 ) ) - 1 ) << fewestSlotBits;
   return 4 * ( 2 * pairs + ( index % 2 ? U64( 1 ) << slotBits( index ) : 0 ) );
}

// Of all handles, so that a child of a fork keeps no connection of its parent's alive.
namespace {

Handle * allHandles = nullptr;

} // namespace

void
Handle::enlist() {
   [[maybe_unused]] static const int registered =
         pthread_atfork( nullptr, nullptr, &Handle::closeAllInChild );
   after_ = allHandles;
   if ( after_ ) {
      after_->before_ = this;
   }
   allHandles = this;
}

void
Handle::closeAllInChild() {
   for ( Handle * handle = allHandles; handle; handle = handle->after_ ) {
      handle->reset();
   }
}

Handle::~Handle() {
   reset();
   ( before_ ? before_->after_ : allHandles ) = after_;
   if ( after_ ) {
      after_->before_ = before_;
   }
}

Handle &
Handle::operator=( Handle && o ) noexcept {
   if ( this != &o ) {
      reset();
      fd_ = o.release();
   }
   return *this;
}

int
Handle::release() {
   return std::exchange( fd_, -1 );
}

void
Handle::reset() {
   if ( fd_ >= 0 ) {
      close( release() );
   }
}

namespace {

/** A memory file of that size, all holes; none with `why`. */
Handle
memoryFile( const char * name, U64 bytes, String * why ) {
   if ( bytes > U64( std::numeric_limits< off_t >::max() ) ) {
      *why = "files of " + Kiv::toText( bytes ) + " bytes are too large for this process";
      return Handle();
   }
   rlimit limit = {};
   if ( getrlimit( RLIMIT_FSIZE, &limit ) == 0 && limit.rlim_cur != RLIM_INFINITY &&
        limit.rlim_cur < bytes ) {
      *why = "files of " + Kiv::toText( bytes ) + " bytes are not allowed";
      return Handle();
   }
   Handle file( memfd_create( name, MFD_CLOEXEC | MFD_ALLOW_SEALING ) );
   if ( !file || ftruncate( file.get(), off_t( bytes ) ) != 0 ) {
      *why = String( "no memory file: " ) + std::strerror( errno );
      return Handle();
   }
   return file;
}

void *
mapFile( int file, U64 bytes, int protection, String * why ) {
   void * base = MAP_FAILED;
   if ( bytes <= std::numeric_limits< std::size_t >::max() ) {
      base = mmap( nullptr, std::size_t( bytes ), protection, MAP_SHARED, file, 0 );
   }
   if ( base == MAP_FAILED ) {
      *why = "no room for " + Kiv::toText( bytes ) + " bytes in the address space";
      return nullptr;
   }
   madvise( base, std::size_t( bytes ), MADV_DONTFORK );
   return base;
}

/** Whether nobody can make the file shorter than it is, and it is a memory file. */
bool
keepsItsSize( int file ) {
   const int seals = fcntl( file, F_GET_SEALS );
   return seals >= 0 && ( seals & F_SEAL_SHRINK );
}

/** The constants of a file that claims to be a table, checked; false with `why`. */
bool
readConstants( int file, const TableType & type, Constants * to, String * why ) {
   struct stat about = {};
   if ( !keepsItsSize( file ) || fstat( file, &about ) != 0 ||
        pread( file, to, sizeof( *to ), 0 ) != ssize_t( sizeof( *to ) ) ||
        to->magic != Constants::magicWord ) {
      *why = "what the writer handed over is no table";
   } else if ( to->version != layoutVersion ) {
      *why = "layout version " + Kiv::toText( to->version ) + ", here " +
             Kiv::toText( layoutVersion );
   } else if ( to->fingerprint != type.fingerprint || to->shape.keyBytes != type.keyBytes ||
               to->shape.valueBytes != type.valueBytes ) {
      *why = "a table of another type";
   } else if ( !Geometry::sound( to->shape ) ||
               U64( about.st_size ) != Geometry( to->shape ).bytes ) {
      *why = "the table's size is not what its writer says";
   } else {
      return true;
   }
   return false;
}

} // namespace

Mapping::Mapping( void * base, const Constants & constants )
    : geometry_( constants.shape ), constants_( constants ), base_( static_cast< char * >( base ) ),
      entries_( base_ + geometry_.entriesAt ) {
   VELTO_ASSERT( geometry_.indexes <= indexes_.size() );
   for ( U32 i = 0; i < geometry_.indexes; ++i ) {
      indexes_[i] =
            reinterpret_cast< U32 * >( base_ + geometry_.indexAt + geometry_.indexOffset( i ) );
   }
}

Mapping::~Mapping() {
   munmap( base_, std::size_t( geometry_.bytes ) );
}

std::shared_ptr< Mapping >
Mapping::make( const Constants & constants, Handle * file, String * why ) {
   const Geometry geometry( constants.shape );
   *file = memoryFile( "quarn-table", geometry.bytes, why );
   if ( !*file ) {
      return nullptr;
   }
   if ( const int failed = posix_fallocate( file->get(), 0, off_t( pageBytes ) ) ) {
      *why = std::strerror( failed );
      return nullptr;
   }
   void * base = mapFile( file->get(), geometry.bytes, PROT_READ | PROT_WRITE, why );
   if ( !base ) {
      return nullptr;
   }
   std::memcpy( base, &constants, sizeof( constants ) );
   std::shared_ptr< Mapping > mapping( new Mapping( base, constants ) );
   if ( fcntl( file->get(), F_ADD_SEALS,
               F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_FUTURE_WRITE | F_SEAL_SEAL ) != 0 ) {
      *why = String( "the memory file cannot be sealed: " ) + std::strerror( errno );
      return nullptr;
   }
   return mapping;
}

std::shared_ptr< Mapping >
Mapping::attach( int file, const TableType & type, String * why ) {
   Constants constants;
   if ( !readConstants( file, type, &constants, why ) ) {
      return nullptr;
   }
   const U64 bytes = Geometry( constants.shape ).bytes;
   void * base = mapFile( file, bytes, PROT_READ, why );
   if ( !base ) {
      return nullptr;
   }
   madvise( base, std::size_t( bytes ), MADV_DONTDUMP );
   return std::shared_ptr< Mapping >( new Mapping( base, constants ) );
}

Handle
makePage() {
   String why;
   Handle page = memoryFile( "quarn-reader", pageBytes, &why );
   if ( page && ( posix_fallocate( page.get(), 0, off_t( pageBytes ) ) != 0 ||
                  fcntl( page.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL ) ) ) {
      page.reset();
   }
   return page;
}

U32 *
mapPage( int file ) {
   struct stat about = {};
   if ( !keepsItsSize( file ) || fstat( file, &about ) != 0 ||
        about.st_size < off_t( pageBytes ) ) {
      return nullptr;
   }
   String why;
   return static_cast< U32 * >( mapFile( file, pageBytes, PROT_READ | PROT_WRITE, &why ) );
}

void
unmapPage( U32 * page ) {
   munmap( page, pageBytes );
}

} // namespace Quarn
