// When the host is likely to post a stream request. Its queue can only be polled, so the queue thread polls
// it closely then.
#pragma once

namespace lenswire {

// Something has happened that requests follow: a start, a login, an invitation, a request. Any thread.
void expect_stream_request();

// Whether something did within the last ten seconds. Yes without a clock.
bool is_stream_request_expected();

}  // namespace lenswire
