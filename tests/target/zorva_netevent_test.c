// SPDX-License-Identifier: GPL-2.0
/*
 * Subscriptions to network events: neighbours of the kernel's own dummy device
 * are changed, by the kernel's means and by a user's, and all that is
 * subscribed has to hear of it.
 */
#include <linux/inet.h>
#include <linux/module.h>
#include <linux/netdevice.h>
#include <linux/notifier.h>
#include <linux/rtnetlink.h>
#include <linux/umh.h>
#include <net/arp.h>
#include <net/neighbour.h>
#include <net/net_namespace.h>
#include <net/netevent.h>

#include "zorva_account.h"

enum {
	OWNER = 47,
	OTHER = 48,
};

#define HANDLE_SIZE ((u32)sizeof(struct notifier_block))
static_assert(sizeof(void *) != 4 || HANDLE_SIZE == 12);

#define EXPECT_ERROR(test, func, text)                                         \
	ZT_EXPECT_REPORTS(test, ZT_ERROR("zorva_util.cpp", func, text))
#define REGISTER "zorva_netevent_ntfy_register"
#define UNREGISTER "zorva_netevent_ntfy_unregister"

/* What the subscribed functions heard, in order. */
#define CALLS 16u

static struct call {
	int function;
	struct notifier_block *handle;
	unsigned long event;
	void *data;
} calls[CALLS];
static u32 call_count;
static int answer;

/* Only events of this device, of which no other test knows. */
static struct net_device *device;

static int hear(int function, struct notifier_block *handle,
		unsigned long event, void *data)
{
	const struct neighbour *neighbour = data;

	if (event != NETEVENT_NEIGH_UPDATE || neighbour->dev != device)
		return NOTIFY_DONE;
	if (call_count < CALLS)
		calls[call_count] =
			(struct call){ function, handle, event, data };
	call_count++;
	return answer;
}

static int hear_first(struct notifier_block *handle, unsigned long event,
		      void *data)
{
	return hear(1, handle, event, data);
}

static int hear_second(struct notifier_block *handle, unsigned long event,
		       void *data)
{
	return hear(2, handle, event, data);
}

static struct notifier_block *
subscribe(struct kunit *test, u32 comp,
	  int (*function)(struct notifier_block *handle, unsigned long event,
			  void *data))
{
	struct notifier_block *handle =
		zorva_netevent_ntfy_register(comp, function);

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, handle);
	return handle;
}

static void withdraw(struct kunit *test, u32 comp,
		     struct notifier_block *handle)
{
	KUNIT_EXPECT_EQ(test, zorva_netevent_ntfy_unregister(comp, handle),
			ZORVA_RC_OK);
}

static void expect_call(struct kunit *test, u32 index, int function,
			struct notifier_block *handle, void *data)
{
	KUNIT_ASSERT_LT(test, index, call_count);
	KUNIT_EXPECT_EQ(test, calls[index].function, function);
	KUNIT_EXPECT_PTR_EQ(test, calls[index].handle, handle);
	KUNIT_EXPECT_EQ(test, calls[index].event,
			(unsigned long)NETEVENT_NEIGH_UPDATE);
	KUNIT_EXPECT_PTR_EQ(test, calls[index].data, data);
}

/* A neighbour that nobody has, and an event for each change of it. */
static struct neighbour *new_neighbour(struct kunit *test)
{
	const __be32 address = in_aton("192.0.2.7");
	struct neighbour *neighbour =
		__neigh_lookup_errno(&arp_tbl, &address, device);

	KUNIT_ASSERT_FALSE(test, IS_ERR(neighbour));
	return neighbour;
}

static void change(struct kunit *test, struct neighbour *neighbour, u8 byte)
{
	const u8 address[ETH_ALEN] = { 2, 0, 0, 0, 0, byte };

	KUNIT_EXPECT_EQ(test,
			neigh_update(neighbour, address, NUD_PERMANENT,
				     NEIGH_UPDATE_F_OVERRIDE |
					     NEIGH_UPDATE_F_ADMIN,
				     0),
			0);
}

static void drop(struct neighbour *neighbour)
{
	neigh_update(neighbour, NULL, NUD_FAILED,
		     NEIGH_UPDATE_F_OVERRIDE | NEIGH_UPDATE_F_ADMIN, 0);
	neigh_release(neighbour);
}

static void a_subscriber_hears_of_an_event(struct kunit *test)
{
	struct notifier_block *handle = subscribe(test, OWNER, hear_first);
	struct neighbour *neighbour = new_neighbour(test);

	KUNIT_EXPECT_EQ(test, call_count, 0u);
	change(test, neighbour, 1);
	KUNIT_EXPECT_EQ(test, call_count, 1u);
	expect_call(test, 0, 1, handle, neighbour);
	change(test, neighbour, 2);
	KUNIT_EXPECT_EQ(test, call_count, 2u);
	expect_call(test, 1, 1, handle, neighbour);

	withdraw(test, OWNER, handle);
	drop(neighbour);
	ZT_EXPECT_NO_REPORTS(test);
}

static void a_withdrawn_subscriber_hears_nothing(struct kunit *test)
{
	struct neighbour *neighbour = new_neighbour(test);
	struct notifier_block *first = subscribe(test, OWNER, hear_first);
	struct notifier_block *second = subscribe(test, OWNER, hear_second);

	withdraw(test, OWNER, first);
	change(test, neighbour, 1);
	KUNIT_EXPECT_EQ(test, call_count, 1u);
	expect_call(test, 0, 2, second, neighbour);

	withdraw(test, OWNER, second);
	change(test, neighbour, 2);
	KUNIT_EXPECT_EQ(test, call_count, 1u);
	drop(neighbour);
}

static void a_function_subscribed_twice_is_called_twice(struct kunit *test)
{
	struct notifier_block *one = subscribe(test, OWNER, hear_first);
	struct notifier_block *two = subscribe(test, OTHER, hear_first);
	struct neighbour *neighbour = new_neighbour(test);

	KUNIT_EXPECT_PTR_NE(test, one, two);
	change(test, neighbour, 1);
	KUNIT_EXPECT_EQ(test, call_count, 2u);
	expect_call(test, 0, 1, one, neighbour);
	expect_call(test, 1, 1, two, neighbour);

	withdraw(test, OWNER, one);
	change(test, neighbour, 2);
	KUNIT_EXPECT_EQ(test, call_count, 3u);
	expect_call(test, 2, 1, two, neighbour);
	withdraw(test, OTHER, two);
	drop(neighbour);
	ZT_EXPECT_NO_REPORTS(test);
}

static void a_subscribers_answer_can_end_an_event(struct kunit *test)
{
	struct notifier_block *first = subscribe(test, OWNER, hear_first);
	struct notifier_block *second = subscribe(test, OWNER, hear_second);
	struct neighbour *neighbour = new_neighbour(test);

	answer = NOTIFY_STOP;
	change(test, neighbour, 1);
	KUNIT_EXPECT_EQ(test, call_count, 1u);
	expect_call(test, 0, 1, first, neighbour);

	answer = NOTIFY_OK;
	change(test, neighbour, 2);
	KUNIT_EXPECT_EQ(test, call_count, 3u);
	expect_call(test, 2, 2, second, neighbour);
	withdraw(test, OWNER, second);
	withdraw(test, OWNER, first);
	drop(neighbour);
}

/* The same as an administrator would do it. */
static int run_arp(const char *options)
{
	const char *const command = "arp -i dummy0 ";
	char line[80];
	char *argv[] = { "/bin/sh", "-c", line, NULL };
	char *envp[] = { "PATH=/sbin:/usr/sbin:/bin:/usr/bin", NULL };

	snprintf(line, sizeof(line), "%s%s", command, options);
	return call_usermodehelper(argv[0], argv, envp, UMH_WAIT_PROC);
}

static void a_subscriber_hears_what_a_user_does(struct kunit *test)
{
	const __be32 address = in_aton("192.0.2.9");
	struct notifier_block *one = subscribe(test, OWNER, hear_first);
	struct notifier_block *two = subscribe(test, OWNER, hear_second);
	struct neighbour *neighbour;

	KUNIT_EXPECT_EQ(test, run_arp("-s 192.0.2.9 02:00:00:00:00:09"), 0);
	neighbour = neigh_lookup(&arp_tbl, &address, device);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, neighbour);
	KUNIT_EXPECT_EQ(test, call_count, 2u);
	expect_call(test, 0, 1, one, neighbour);
	expect_call(test, 1, 2, two, neighbour);

	KUNIT_EXPECT_EQ(test, run_arp("-d 192.0.2.9"), 0);
	KUNIT_EXPECT_GE(test, call_count, 4u);
	expect_call(test, 2, 1, one, neighbour);
	expect_call(test, 3, 2, two, neighbour);

	neigh_release(neighbour);
	withdraw(test, OWNER, two);
	withdraw(test, OWNER, one);
	ZT_EXPECT_NO_REPORTS(test);
}

/* The owner is charged for the handle, and nobody else. */
static void a_handle_is_a_block_of_its_owner(struct kunit *test)
{
	const struct zt_account owner = zt_account_of(test, OWNER);
	const struct zt_account self =
		zt_account_of(test, ZORVA_COMPONENT_SELF);
	struct notifier_block *handle = subscribe(test, OWNER, hear_first);

	ZT_EXPECT_GROWTH(test, OWNER, owner, HANDLE_SIZE, 1);
	ZT_EXPECT_GROWTH(test, ZORVA_COMPONENT_SELF, self, 0, 0);
	KUNIT_EXPECT_EQ(test, zt_block_of(handle)->size, HANDLE_SIZE);
	KUNIT_EXPECT_EQ(test, zt_block_of(handle)->comp, (u32)OWNER);
	KUNIT_EXPECT_TRUE(test, handle->notifier_call == hear_first);
	KUNIT_EXPECT_EQ(test, handle->priority, 0);

	withdraw(test, OWNER, handle);
	ZT_EXPECT_GROWTH(test, OWNER, owner, 0, 0);
}

static void every_valid_component_can_subscribe(struct kunit *test)
{
	u32 comp;

	for (comp = 1; comp < ZORVA_COMPONENTS; comp++)
		withdraw(test, comp, subscribe(test, comp, hear_first));
	ZT_EXPECT_NO_REPORTS(test);
}

static void without_memory_nothing_is_subscribed(struct kunit *test)
{
	const struct zt_account owner = zt_account_of(test, OWNER);
	struct neighbour *neighbour = new_neighbour(test);
	struct notifier_block *handle;

	zt_fail_allocation(1);
	handle = zorva_netevent_ntfy_register(OWNER, hear_first);
	KUNIT_ASSERT_TRUE(test, zt_end_failing());

	ZT_EXPECT_NULL(test, handle);
	KUNIT_ASSERT_EQ(test, zt_report_count(), 2u);
	zt_expect_no_memory(test, 0, HANDLE_SIZE, "zorva_util.cpp");
	KUNIT_EXPECT_STREQ(test, (const char *)zt_report(test, 1)->text,
			   "allocate memory failed.");
	KUNIT_EXPECT_STREQ(test, (const char *)zt_report(test, 1)->func,
			   REGISTER);
	KUNIT_EXPECT_EQ(test, zt_report(test, 1)->level, ZORVA_LEVEL_ERROR);
	KUNIT_EXPECT_EQ(test, zt_stack_dumps(), 1u);
	ZT_EXPECT_GROWTH(test, OWNER, owner, 0, 0);
	change(test, neighbour, 1);
	KUNIT_EXPECT_EQ(test, call_count, 0u);
	drop(neighbour);
}

static void subscribing_allocates_only_the_handle(struct kunit *test)
{
	struct notifier_block *handle;
	bool failed;
	u32 result;

	zt_fail_allocation(2);
	handle = zorva_netevent_ntfy_register(OWNER, hear_first);
	result = zorva_netevent_ntfy_unregister(OWNER, handle);
	failed = zt_end_failing();

	KUNIT_EXPECT_EQ(test, result, ZORVA_RC_OK);
	KUNIT_EXPECT_FALSE(test, failed);
}

/* The kernel knows of no such subscription: the block stays allocated. */
static void an_unknown_handle_is_refused_and_kept(struct kunit *test)
{
	const struct zt_account owner = zt_account_of(test, OWNER);
	struct notifier_block *known = subscribe(test, OWNER, hear_first);
	struct notifier_block *unknown = zorva_malloc(OWNER, HANDLE_SIZE);
	struct neighbour *neighbour = new_neighbour(test);
	u32 i;

	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, unknown);
	for (i = 0; i < 2; i++) {
		zt_forget_reports();
		KUNIT_EXPECT_EQ(test,
				zorva_netevent_ntfy_unregister(OWNER, unknown),
				0xFFFFFFFFu);
		EXPECT_ERROR(test, UNREGISTER, "deregister failed.");
		ZT_EXPECT_GROWTH(test, OWNER, owner, 2 * HANDLE_SIZE, 2);
		KUNIT_EXPECT_EQ(test, zt_block_of(unknown)->in_use, 1u);
	}

	/* Those that it knows go on. */
	change(test, neighbour, 1);
	KUNIT_EXPECT_EQ(test, call_count, 1u);
	expect_call(test, 0, 1, known, neighbour);
	withdraw(test, OWNER, known);
	drop(neighbour);
	zorva_free(OWNER, unknown);
	ZT_EXPECT_GROWTH(test, OWNER, owner, 0, 0);
}

/* Every call with one wrong argument, or more; only the first is reported. */
static void subscribing_needs_right_arguments(struct kunit *test)
{
	static const struct {
		u32 comp;
		bool function;
	} wrong[] = { { 0, true },	    { 57, true }, { 58, true },
		      { 0xFFFFFFFF, true }, { 0, false }, { 57, false },
		      { OWNER, false } };
	struct neighbour *neighbour = new_neighbour(test);
	s32 comp_line = 0, function_line = 0;
	u32 i;

	for (i = 0; i < ARRAY_SIZE(wrong); i++) {
		zt_forget_reports();
		ZT_EXPECT_NULL(test,
			       zorva_netevent_ntfy_register(wrong[i].comp,
							    wrong[i].function
								    ? hear_first
								    : NULL));
		EXPECT_ERROR(test, REGISTER, "invalid parameter");
		KUNIT_ASSERT_EQ(test, zt_report_count(), 1u);
		if (wrong[i].comp == OWNER)
			function_line = zt_report(test, 0)->line;
		else
			comp_line = zt_report(test, 0)->line;
	}
	KUNIT_EXPECT_NE(test, comp_line, function_line);

	change(test, neighbour, 1);
	KUNIT_EXPECT_EQ(test, call_count, 0u);
	drop(neighbour);
}

static void withdrawing_needs_right_arguments(struct kunit *test)
{
	static const struct {
		u32 comp;
		bool handle;
		u32 want;
	} wrong[] = {
		{ 0, true, 0x70000002 },      { 57, true, 0x70000002 },
		{ 58, true, 0x70000002 },     { 0xFFFFFFFF, true, 0x70000002 },
		{ 0, false, 0x70000002 },     { 57, false, 0x70000002 },
		{ OWNER, false, 0x7E000015 },
	};
	struct notifier_block *handle = subscribe(test, OWNER, hear_first);
	struct neighbour *neighbour = new_neighbour(test);
	const struct zt_account owner = zt_account_of(test, OWNER);
	s32 comp_line = 0, handle_line = 0;
	u32 i;

	for (i = 0; i < ARRAY_SIZE(wrong); i++) {
		zt_forget_reports();
		KUNIT_EXPECT_EQ(test,
				zorva_netevent_ntfy_unregister(wrong[i].comp,
							       wrong[i].handle
								       ? handle
								       : NULL),
				wrong[i].want);
		EXPECT_ERROR(test, UNREGISTER, "invalid parameter");
		KUNIT_ASSERT_EQ(test, zt_report_count(), 1u);
		if (wrong[i].comp == OWNER)
			handle_line = zt_report(test, 0)->line;
		else
			comp_line = zt_report(test, 0)->line;
	}
	KUNIT_EXPECT_NE(test, comp_line, handle_line);

	/* It is still subscribed. */
	ZT_EXPECT_GROWTH(test, OWNER, owner, 0, 0);
	change(test, neighbour, 1);
	KUNIT_EXPECT_EQ(test, call_count, 1u);
	withdraw(test, OWNER, handle);
	drop(neighbour);
}

static void many_subscribers_all_hear_of_an_event(struct kunit *test)
{
	struct notifier_block *handles[CALLS];
	struct neighbour *neighbour = new_neighbour(test);
	u32 i;

	for (i = 0; i < CALLS; i++)
		handles[i] = subscribe(test, OWNER,
				       i % 2 ? hear_second : hear_first);
	change(test, neighbour, 1);
	KUNIT_EXPECT_EQ(test, call_count, CALLS);
	for (i = 0; i < CALLS; i++)
		expect_call(test, i, 1 + i % 2, handles[i], neighbour);

	for (i = 0; i < CALLS; i++)
		withdraw(test, OWNER, handles[i]);
	change(test, neighbour, 2);
	KUNIT_EXPECT_EQ(test, call_count, CALLS);
	drop(neighbour);
	ZT_EXPECT_NO_REPORTS(test);
}

static int netevent_init(struct kunit *test)
{
	int error;

	call_count = 0;
	answer = NOTIFY_OK;
	device = dev_get_by_name(&init_net, "dummy0");
	if (!device)
		return -ENODEV;
	rtnl_lock();
	error = dev_change_flags(device, (device->flags | IFF_UP) & ~IFF_NOARP,
				 NULL);
	rtnl_unlock();
	return error ? error : zt_init(test);
}

static void netevent_exit(struct kunit *test)
{
	zt_exit(test);
	if (!device)
		return;
	rtnl_lock();
	dev_change_flags(device, (device->flags & ~IFF_UP) | IFF_NOARP, NULL);
	rtnl_unlock();
	dev_put(device);
	device = NULL;
}

static struct kunit_case cases[] = {
	KUNIT_CASE(a_subscriber_hears_of_an_event),
	KUNIT_CASE(a_withdrawn_subscriber_hears_nothing),
	KUNIT_CASE(a_function_subscribed_twice_is_called_twice),
	KUNIT_CASE(a_subscribers_answer_can_end_an_event),
	KUNIT_CASE(a_subscriber_hears_what_a_user_does),
	KUNIT_CASE(a_handle_is_a_block_of_its_owner),
	KUNIT_CASE(every_valid_component_can_subscribe),
	KUNIT_CASE(without_memory_nothing_is_subscribed),
	KUNIT_CASE(subscribing_allocates_only_the_handle),
	KUNIT_CASE(an_unknown_handle_is_refused_and_kept),
	KUNIT_CASE(subscribing_needs_right_arguments),
	KUNIT_CASE(withdrawing_needs_right_arguments),
	KUNIT_CASE(many_subscribers_all_hear_of_an_event),
	{}
};

static struct kunit_suite suite = {
	.name = "zorva_netevent",
	.init = netevent_init,
	.exit = netevent_exit,
	.test_cases = cases,
};
kunit_test_suite(suite);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Network events through ZORVA");
