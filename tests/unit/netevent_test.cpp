// SPDX-License-Identifier: GPL-2.0
/* Subscriptions to network events. */
#include "service_fixture.h"
#include "zorva/netevent.h"

namespace
{

struct told {
	struct notifier_block *handle;
	unsigned long event;
	void *data;
};

std::vector<told> heard;

int listener(struct notifier_block *handle, unsigned long event, void *data)
{
	heard.push_back({ handle, event, data });
	return 7;
}

class NetworkEvent : public ServiceTest {
protected:
	static struct notifier_block *subscribe()
	{
		return zorva_netevent_ntfy_register(owner, listener);
	}
};

} // namespace

TEST_F(NetworkEvent, RefusesWrongArgumentsOfASubscriptionInOrder)
{
	const auto with = [](u32 compId, decltype(&listener) notify) {
		return [=] {
			return as_word(
				zorva_netevent_ntfy_register(compId, notify));
		};
	};

	refuses("zorva_util.cpp", "zorva_netevent_ntfy_register",
		{ { 0, with(0, listener), with(0, nullptr) },
		  { 0, with(57, listener), with(0xFFFFFFFF, nullptr) },
		  { 0, with(owner, nullptr), with(owner, nullptr) } });
}

TEST_F(NetworkEvent, IsHeardByItsSubscriber)
{
	int data;
	struct notifier_block *const handle = subscribe();

	ASSERT_NE(handle, nullptr);
	EXPECT_EQ(fake::netevent_listeners(), 1u);
	EXPECT_EQ(fake::raise_netevent(3, &data), 7);

	ASSERT_EQ(heard.size(), 1u);
	EXPECT_EQ(heard[0].handle, handle);
	EXPECT_EQ(heard[0].event, 3u);
	EXPECT_EQ(heard[0].data, &data);
	EXPECT_EQ(all_reports(), "");
	EXPECT_EQ(zorva_netevent_ntfy_unregister(owner, handle), ok);
}

TEST_F(NetworkEvent, HasHandlesOfPriority0ChargedToTheirComponent)
{
	struct notifier_block *const handle = subscribe();

	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, 12u);
	EXPECT_EQ(_zorvaMallocMemUsage[9].allocCount, 0u);
	EXPECT_EQ(fake::netevent_priority(handle), 0);

	EXPECT_EQ(zorva_netevent_ntfy_unregister(owner, handle), ok);
	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, 0u);
}

TEST_F(NetworkEvent, IsHeardTwiceByWhoeverSubscribesTwice)
{
	struct notifier_block *const first = subscribe();
	struct notifier_block *const second = subscribe();
	EXPECT_NE(first, second);

	fake::raise_netevent(1, nullptr);
	EXPECT_EQ(zorva_netevent_ntfy_unregister(owner, first), ok);
	fake::raise_netevent(2, nullptr);

	ASSERT_EQ(heard.size(), 3u);
	EXPECT_EQ(heard[0].handle, first);
	EXPECT_EQ(heard[1].handle, second);
	EXPECT_EQ(heard[2].handle, second);
	EXPECT_EQ(zorva_netevent_ntfy_unregister(owner, second), ok);
	EXPECT_EQ(fake::netevent_listeners(), 0u);
}

TEST_F(NetworkEvent, IsNotSubscribedToWithoutMemory)
{
	const unsigned int allocations =
		fail_each_allocation([](unsigned int nth) {
			struct notifier_block *const handle = subscribe();

			if (nth > 1) {
				zorva_netevent_ntfy_unregister(owner, handle);
				return;
			}
			EXPECT_EQ(handle, nullptr);
			EXPECT_EQ(last_report(),
				  "1 zorva_util.cpp "
				  "zorva_netevent_ntfy_register: "
				  "allocate memory failed.");
			EXPECT_TRUE(fake::calls().empty());
		});

	EXPECT_EQ(allocations, 1u);
	EXPECT_EQ(reports().size(), 2u);
	EXPECT_EQ(fake::log_text(), "<stack>\n");
}

TEST_F(NetworkEvent, IsNotSubscribedToWhenTheKernelRefuses)
{
	fake::refuse_netevents(-12);

	EXPECT_EQ(subscribe(), nullptr);

	EXPECT_EQ(new_reports(), "1 zorva_util.cpp "
				 "zorva_netevent_ntfy_register: "
				 "register failed.\n");
	EXPECT_EQ(tracked_blocks(), 0u);
	EXPECT_EQ(_zorvaMallocMemUsage[owner].freeCount, 1u);
}

TEST_F(NetworkEvent, HasTheHandleOfARefusalFreedForItsComponent)
{
	fake::on_call([](const fake::call &made) {
		tear(const_cast<void *>(made.object));
	});
	fake::refuse_netevents(-12);

	subscribe();

	expect_torn_free("PORT", "zorva_util.cpp");
}

TEST_F(NetworkEvent, IsSubscribedToWhateverResultIsNotNegative)
{
	fake::refuse_netevents(1);

	struct notifier_block *const handle = subscribe();

	EXPECT_NE(handle, nullptr);
	EXPECT_EQ(all_reports(), "");
	leave(handle);
}

TEST_F(NetworkEvent, RefusesWrongArgumentsOfAWithdrawalInOrder)
{
	struct notifier_block *const handle = subscribe();
	const auto with = [](u32 compId, struct notifier_block *which) {
		return [=] {
			return zorva_netevent_ntfy_unregister(compId, which);
		};
	};

	refuses("zorva_util.cpp", "zorva_netevent_ntfy_unregister",
		{ { bad_component, with(0, handle), with(0, nullptr) },
		  { bad_component, with(57, handle),
		    with(0xFFFFFFFF, nullptr) },
		  { null_argument, with(owner, nullptr),
		    with(owner, nullptr) } });

	EXPECT_EQ(zorva_netevent_ntfy_unregister(owner, handle), ok);
}

TEST_F(NetworkEvent, IsWithdrawnFromByAnyComponent)
{
	struct notifier_block *const handle = subscribe();

	EXPECT_EQ(zorva_netevent_ntfy_unregister(other, handle), ok);

	fake::raise_netevent(1, nullptr);
	EXPECT_TRUE(heard.empty());
	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, 0u);
	EXPECT_EQ(all_reports(), "");
}

TEST_F(NetworkEvent, HasItsHandleFreedForWhoeverWithdraws)
{
	struct notifier_block *const handle = subscribe();
	tear(handle);

	EXPECT_EQ(zorva_netevent_ntfy_unregister(other, handle), ok);

	expect_torn_free("VLAN", "zorva_util.cpp");
}

TEST_F(NetworkEvent, KeepsAHandleThatTheKernelDoesNotKnow)
{
	auto *const handle = static_cast<struct notifier_block *>(
		zorva_malloc_track(owner, 12, "caller.c", 7));

	EXPECT_EQ(zorva_netevent_ntfy_unregister(owner, handle), failed);

	EXPECT_EQ(new_reports(), "1 zorva_util.cpp "
				 "zorva_netevent_ntfy_unregister: "
				 "deregister failed.\n");
	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, 12u);
	zorva_free_track(owner, handle, "caller.c", 8);
}
