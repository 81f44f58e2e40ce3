#include "Qon/include/VerifyData.h"

#include <algorithm>

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Qon::VerifyRequired )
KIV_DEFINE( Qon::VerifyData )

namespace Qon {

VerifyCheck::~VerifyCheck() {
   attach( nullptr, "", nullptr, nullptr );
}

void
VerifyCheck::attach( Velto::Ptr< VerifyData > data, const String & name, Velto::Node * owner,
                     Run run ) {
   if ( data_ && data_ != data ) {
      std::erase( data_->checks_, this );
   }
   if ( data && data_ != data ) {
      data->checks_.push_back( this );
   }
   data_ = std::move( data );
   name_ = name;
   owner_ = owner;
   run_ = run;
}

void
VerifyData::doRequestVerify() {
   if ( verify() && verifyRequired() ) {
      verifyRequired()->verifyRequiredIs( verifyRequired()->verifyRequired() + 1 );
   }
}

void
VerifyData::resetVerifyData() {
   socketIs( 0 );
   cliVerifyOutputDelAll();
   verifyOutputIs( VerifyOutput() );
   verifyIncIs( 0 );
}

void
VerifyData::initVerifyData( U32 socket ) {
   resetVerifyData();
   socketIs( socket );
}

void
VerifyData::updateCliVerifyOutput( const String & key, const String & value ) {
   cliVerifyOutputIs( key, value );
}

void
VerifyData::reportFinding( const VerifyOutput & output ) {
   verifyOutputIs( output );
   verifyIncIs( verifyInc() + 1 );
   auto key = output.filename() + ":" + std::to_string( output.lineNum() ) + "#" +
              std::to_string( verifyInc() );
   updateCliVerifyOutput( key, output.description() );
}

void
VerifyData::runChecks() {
   for ( auto check : std::vector< VerifyCheck * >( checks_ ) ) {
      bool there = std::find( checks_.begin(), checks_.end(), check ) != checks_.end();
      if ( there && check->owner_->kivHears() ) {
         check->run_( check->owner_ );
      }
   }
}

} // namespace Qon
