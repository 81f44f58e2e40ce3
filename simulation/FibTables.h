#pragma once
// A table of the forwarding table's writer, and what a reader of it must have read.
//
//    open() -> is(), del() ... complete() -> looked( connected ): read
//    close(): the reader stays with what it has read
//
// Keys are numbers here; `KeyOf` makes the table's own of them.

#include <map>
#include <memory>

#include "platform/Quarn/TableWriter.h"

namespace Sim {

template< class Key, class Value >
class FibTable {
 public:
   using Records = std::map< U32, Value >;
   using KeyOf = Key ( * )( U32 );

   FibTable( const char * name, KeyOf keyOf ) : name_( name ), keyOf_( keyOf ) {}

   bool isOpen() const { return bool( writer_ ); }
   void open( Quarn::Server & server, U32 most ) {
      writer_ = std::make_unique< Quarn::TableWriter< Key, Value > >( &server, name_,
                                                                      Quarn::Room{ most } );
   }
   void close() {
      if ( adopted_ ) {
         left_ = written_;
      }
      writer_ = nullptr;
      written_.clear();
      adopted_ = false;
   }
   void completeIs( bool v ) {
      if ( writer_ ) {
         writer_->completeIs( v );
      }
   }
   void is( U32 number, const Value & value ) {
      if ( writer_ && writer_->valueIs( keyOf_( number ), value ) ) {
         written_[number] = value;
      }
   }
   void del( U32 number ) {
      if ( writer_ && writer_->valueDel( keyOf_( number ) ) ) {
         written_.erase( number );
      }
   }
   void delAll() {
      while ( !written_.empty() ) {
         del( written_.begin()->first );
      }
   }

   /** The reader has looked at everything; `connected`: at this writer. Whether it has gone over to it. */
   bool looked( bool connected ) {
      const bool former = adopted_;
      adopted_ = adopted_ || ( writer_ && connected && writer_->complete() );
      return adopted_ != former;
   }
   /** Another reader begins, who knows nothing. */
   void forget() {
      adopted_ = false;
      left_.clear();
   }
   const Records & read() const { return adopted_ ? written_ : left_; }
   const Records & written() const { return written_; }

 private:
   const char * const name_;
   const KeyOf keyOf_;
   std::unique_ptr< Quarn::TableWriter< Key, Value > > writer_; // null: there is no such table
   Records written_, left_;                                     // left_ by a former writer
   bool adopted_ = false;                                       // the reader reads this writer's
};

} // namespace Sim
