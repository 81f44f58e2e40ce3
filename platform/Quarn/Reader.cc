#include "platform/Quarn/Reader.h"

#include <algorithm>

#include "platform/Quarn/Server.h"
#include "platform/Quarn/Source.h"

namespace Quarn {

FollowerLink::FollowerLink( Reader * reader ) : reader_( reader ) {
   reader->followers_.push_back( this );
}

FollowerLink::~FollowerLink() {
   if ( reader_ ) {
      std::erase( reader_->followers_, this );
   }
}

Reader::Reader( Source * source, const String & name, const TableType & type )
    : source_( source ), name_( name ), type_( type ), since_( Kiv::now() ) {
   checkName( name );
   source->readerIs( this );
}

Reader::~Reader() {
   if ( source_ ) {
      source_->readerDel( this );
   }
   for ( FollowerLink * follower : followers_ ) {
      follower->reader_ = nullptr;
   }
}

const std::shared_ptr< Mapping > &
Reader::current() const {
   if ( pending_ ) [[unlikely]] {
      adopt();
   }
   return current_;
}

bool
Reader::complete() const {
   note();
   return wasComplete_;
}

Seconds
Reader::since() const {
   note();
   return since_;
}

void
Reader::note() const {
   adopt();
   const bool now =
         live_ && current_ && !pending_ && loadAcquire( &current_->live().complete ) == 1;
   if ( now != wasComplete_ ) {
      wasComplete_ = now;
      since_ = Kiv::now();
   }
}

/** Goes over to what came last, once its writer has written everything. */
void
Reader::adopt() const {
   if ( pending_ && loadAcquire( &pending_->live().complete ) == 1 ) {
      current_ = std::move( pending_ );
      pending_ = nullptr;
   }
}

void
Reader::memoryIs( int file ) {
   String why;
   adopt();
   live_ = false;
   pending_ = Mapping::attach( file, type_, &why );
   if ( pending_ ) {
      refusal_.clear();
      live_ = true;
   } else {
      refusal_ = "table '" + name_ + "': " + why;
   }
   note();
}

/** There is no such table, or none that this reader can read. */
void
Reader::refused( const String & line ) {
   gone();
   refusal_ = line;
}

/** The writer of what came last has ended. */
void
Reader::gone() {
   adopt();
   pending_ = nullptr;
   live_ = false;
   note();
}

void
Reader::look() {
   note();
   for ( FollowerLink * follower : followers_ ) {
      follower->look();
   }
}

void
Reader::rest() {
   if ( source_ ) {
      source_->rest();
   }
}

} // namespace Quarn
